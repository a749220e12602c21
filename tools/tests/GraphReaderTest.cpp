// The graph reader of the tool: assembling filter graphs from the library's own descriptions.
#include "GraphReader.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "ToolError.h"
#include "dataset/CastDataset.h"
#include "dataset/DirectionFilteredVectorLengthDataset.h"
#include "dataset/GradientDataset.h"
#include "dataset/LinearTransformationDataset.h"
#include "dataset/ScaleDataset.h"
#include "dataset/SmoothDataset.h"
#include "dataset/VectorLengthDataset.h"

using namespace tarv;
using namespace tarv::tool;

namespace {

DatasetHandle makeRamp(const DatasetCoordinates& size) {
  Dataset* dataset = new Dataset(true);
  DatasetHandle handle(dataset);
  dataset->newDataset<float>(size, DatasetWorldEmbedding(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(0.5, 1, 2, 1)));
  for (auto it = dataset->getStartCoordinatesIterator(); it.valid; dataset->incrementCoordinatesIterator(it))
    dataset->setElement<double>(it, 2.0 * it.x + it.y * it.y - 3.0 * it.z);
  return handle;
}

GraphReader readGraph(const std::string& text) {
  GraphReader reader("g.txt");
  std::istringstream stream(text);
  reader.read(stream);
  return reader;
}

// The message of the ToolError that f throws, or "" when it throws none.
template <typename F>
std::string errorOf(F f) {
  try {
    f();
  } catch (const ToolError& error) {
    return error.what();
  }
  return std::string();
}

TEST(GraphReader, DescriptionsWrittenByTheLibraryReadBackAsTheSameGraph) {
  DatasetHandle input = makeRamp(DatasetCoordinates(12, 9, 7, 1, 1));
  Dataset* source = GetRawPtr(input);
  source->setDatasetID(0);

  SmoothDataset smooth;
  smooth.setDatasetID(3);
  smooth.setSourceDataset(source);
  smooth.setParameters(3, 1, 5, -7.5);
  GradientDataset gradientX, gradientZ;
  gradientX.setDatasetID(4);
  gradientX.setSourceDataset(&smooth);
  gradientX.setParameters(3, 0, 5, true, 0.25);
  gradientZ.setDatasetID(5);
  gradientZ.setSourceDataset(&smooth);
  gradientZ.setParameters(3, 2, 3, false, 0.0);
  DirectionFilteredVectorLengthDataset direction;
  direction.setDatasetID(9);
  direction.setSourceDatasets({&gradientX, &gradientZ});
  Vector along(2, 0.0);
  along[0] = 0.6;
  along[1] = 0.8;
  direction.setParameters(true, along, true);
  ScaleDataset scale;
  scale.setDatasetID(11);
  scale.setSourceDataset(&direction);
  scale.setParameters(-1.0, 1.0, false, 0.5, 3.5);

  // Written result first, so that the reader has to order the nodes itself.
  std::ostringstream text;
  scale.write(text);
  direction.write(text);
  gradientZ.write(text);
  gradientX.write(text);
  smooth.write(text);

  GraphReader reader = readGraph(text.str());
  ASSERT_EQ(reader.getNodes().size(), 5u);
  reader.connect({{0, source}});
  const std::vector<GraphReader::Node>& nodes = reader.getNodes();
  EXPECT_EQ(nodes.front().id, 3);
  EXPECT_EQ(nodes.back().id, 11);
  EXPECT_EQ(reader.chooseResult(-1), 11);

  // Equivalent node by node: same classes, parameters and (equivalent) sources.
  EXPECT_TRUE(smooth.isDatasetEquivalent(reader.findNode(3)->getFilter()));
  EXPECT_TRUE(gradientX.isDatasetEquivalent(reader.findNode(4)->getFilter()));
  EXPECT_TRUE(gradientZ.isDatasetEquivalent(reader.findNode(5)->getFilter()));
  EXPECT_TRUE(direction.isDatasetEquivalent(reader.findNode(9)->getFilter()));
  EXPECT_TRUE(scale.isDatasetEquivalent(reader.findNode(11)->getFilter()));

  // And the same elements.
  Dataset* result = reader.findDataset(11);
  ASSERT_TRUE(result->hasData());
  reader.announceFullAccess();
  result->calculateFullDataset(nullptr);
  for (auto it = scale.getStartCoordinatesIterator(); it.valid; scale.incrementCoordinatesIterator(it)) {
    const DatasetCoordinates& c = it;
    ASSERT_EQ(result->getElement<double>(c), scale.getElement<double>(c)) << c;
  }
}

TEST(GraphReader, CommentsAndBlankLinesSeparateDescriptions) {
  GraphReader reader = readGraph(
      "# a comment before\n\n\n"
      "ID = 1\n"
      "  # a comment inside does not end the block\n"
      "Type = LinearTransformationDataset\n"
      "SourceDatasetIDList = 0\r\n"
      "Factor = 3\n"
      "   \n"
      "ID=2\nType=CastDataset\nSourceDatasetIDList=1\nElementType=8\n");
  ASSERT_EQ(reader.getNodes().size(), 2u);
  EXPECT_EQ(reader.getNodes()[0].type, "LinearTransformationDataset");
  EXPECT_EQ(reader.getNodes()[0].line, 4);
  EXPECT_EQ(reader.getNodes()[1].sourceIds, std::list<int>{1});

  DatasetHandle input = makeRamp(DatasetCoordinates(4, 3, 2, 1, 1));
  reader.connect({{0, GetRawPtr(input)}});
  Dataset* cast = reader.findDataset(2);
  EXPECT_EQ(cast->getElementType(), TARV_ELEMENT_TYPE_SIGNED_INT);
  // 3 * (2x + y^2 - 3z) at (3, 2, 1): 3 * 7 = 21.
  EXPECT_EQ(cast->getElement<int>(DatasetCoordinates(3, 2, 1, 0, 0)), 21);
  EXPECT_EQ(reader.findDataset(0), GetRawPtr(input));
  EXPECT_EQ(reader.findDataset(7), nullptr);
}

TEST(GraphReader, ReportsProblemsWithFileAndLine) {
  EXPECT_EQ(errorOf([] { readGraph("ID = 1\nType = Bogus\n"); }).rfind("g.txt:2: unknown type 'Bogus'", 0), 0u);
  EXPECT_EQ(errorOf([] { readGraph("ID = x\nType = CastDataset\n"); }).rfind("g.txt:1: ID needs", 0), 0u);
  EXPECT_EQ(errorOf([] { readGraph("ID = -4\nType = CastDataset\n"); }).rfind("g.txt:1: ID needs", 0), 0u);
  EXPECT_EQ(errorOf([] { readGraph("ID = 1\nType = CastDataset\nID = 2\n"); }).rfind("g.txt:3: ID is given twice", 0),
            0u);
  EXPECT_EQ(errorOf([] { readGraph("ID = 1\nType = CastDataset\nSourceDatasetIDList = 1 two\n"); })
                .rfind("g.txt:3: SourceDatasetIDList needs integers", 0),
            0u);
  EXPECT_EQ(errorOf([] { readGraph("ID = 1\nType = CastDataset\nElementTyp = 5\n"); })
                .rfind("g.txt:3: CastDataset has no entry 'ElementTyp'", 0),
            0u);
  EXPECT_EQ(errorOf([] { readGraph("ID = 1\nType = CastDataset\nElementType =\n"); })
                .rfind("g.txt:3: ElementType has no value", 0),
            0u);
  EXPECT_EQ(errorOf([] { readGraph("\n# only comments\n"); }).rfind("g.txt: no filter descriptions", 0), 0u);
  EXPECT_EQ(errorOf([] { readGraph(std::string("ID = 1\0\n", 8)); }).rfind("g.txt:1: not a text file", 0), 0u);
}

TEST(GraphReader, FindsCyclesWithoutRecursion) {
  // A chain of 20000 nodes whose first node uses the last one.
  std::ostringstream text;
  const int count = 20000;
  for (int id = 1; id <= count; ++id)
    text << "ID = " << id << "\nType = LinearTransformationDataset\nSourceDatasetIDList = "
         << (id == 1 ? count : id - 1) << "\n\n";
  GraphReader reader = readGraph(text.str());
  const std::string message = errorOf([&reader] { reader.connect({}); });
  EXPECT_NE(message.find("the graph has a cycle"), std::string::npos) << message.substr(0, 200);
}

TEST(GraphReader, LongChainsWithoutCyclesConnect) {
  std::ostringstream text;
  const int count = 3000;
  for (int id = 1; id <= count; ++id)
    text << "ID = " << id << "\nType = LinearTransformationDataset\nSourceDatasetIDList = " << id - 1
         << "\nSummand = 1\n\n";
  GraphReader reader = readGraph(text.str());
  DatasetHandle input = makeRamp(DatasetCoordinates(2, 2, 1, 1, 1));
  reader.connect({{0, GetRawPtr(input)}});
  EXPECT_EQ(reader.chooseResult(-1), count);
  EXPECT_EQ(reader.findDataset(count)->getElement<double>(DatasetCoordinates(1, 1, 0, 0, 0)), 3.0 + count);
}

TEST(GraphReader, ConnectionProblems) {
  DatasetHandle input = makeRamp(DatasetCoordinates(4, 4, 1, 1, 1));
  const auto connect = [&input](const std::string& text) {
    return errorOf([&] { readGraph(text).connect({{0, GetRawPtr(input)}}); });
  };
  EXPECT_EQ(connect("ID = 4\nType = SmoothDataset\nSourceDatasetIDList = 5\n")
                .rfind("g.txt:1: source ID 5 of node 4 names neither a description nor an --input", 0),
            0u);
  EXPECT_EQ(connect("ID = 0\nType = SmoothDataset\nSourceDatasetIDList = 0\n").rfind("g.txt:1: ID 0 is given both", 0),
            0u);
  EXPECT_EQ(connect("ID = 1\nType = VectorLengthDataset\nSourceDatasetIDList = 0 0 0 0 0\n")
                .rfind("g.txt:1: VectorLengthDataset 1 does not accept its 5 sources", 0),
            0u);
  EXPECT_EQ(connect("ID = 1\nType = SmoothDataset\n").rfind("g.txt:1: SmoothDataset 1 does not accept having no source", 0),
            0u);
  EXPECT_EQ(connect("ID = 1\nType = CastDataset\nSourceDatasetIDList = 2\n\n"
                    "ID = 2\nType = CastDataset\nSourceDatasetIDList = 3\n\n"
                    "ID = 3\nType = CastDataset\nSourceDatasetIDList = 2\n"),
            "g.txt:5: the graph has a cycle: 2 uses 3 uses 2 (a node cannot be computed from itself)");
}

TEST(GraphReader, ChoosesTheResult) {
  GraphReader reader = readGraph(
      "ID = 1\nType = CastDataset\nSourceDatasetIDList = 0\n\n"
      "ID = 2\nType = CastDataset\nSourceDatasetIDList = 0\n");
  DatasetHandle input = makeRamp(DatasetCoordinates(2, 2, 2, 1, 1));
  reader.connect({{0, GetRawPtr(input)}});
  EXPECT_EQ(errorOf([&reader] { reader.chooseResult(-1); }),
            "g.txt: the graph has several results (IDs 1, 2): choose one with --output-id");
  EXPECT_EQ(reader.chooseResult(2), 2);
  EXPECT_EQ(reader.chooseResult(0), 0);
  EXPECT_EQ(errorOf([&reader] { reader.chooseResult(3); }), "--output-id 3: no description or --input has this ID");
}

TEST(GraphReader, KnowsEveryFilterOfTheLibrary) {
  for (const std::string& type : GraphReader::getKnownTypes()) {
    DependentDataset* filter = GraphReader::createFilter(type);
    ASSERT_NE(filter, nullptr) << type;
    EXPECT_EQ(filter->getTypeName(), type);
    delete filter;
  }
  EXPECT_EQ(GraphReader::getKnownTypes().size(), 10u);
  EXPECT_EQ(GraphReader::createFilter("EmptyDataset"), nullptr);
}

}  // namespace
