// Filter graphs assembled from the library's own descriptions, and graphs written back as text.
#include "graphs/FilterGraph.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "dataset/CastDataset.h"
#include "dataset/DirectionFilteredVectorLengthDataset.h"
#include "dataset/GradientDataset.h"
#include "dataset/LinearTransformationDataset.h"
#include "dataset/ScaleDataset.h"
#include "dataset/SmoothDataset.h"
#include "dataset/VectorLengthDataset.h"

using namespace tarv;
using namespace tarv::graphs;

namespace {

DatasetHandle makeRamp(const DatasetCoordinates& size) {
  Dataset* dataset = new Dataset(true);
  DatasetHandle handle(dataset);
  dataset->newDataset<float>(size, DatasetWorldEmbedding(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(0.5, 1, 2, 1)));
  for (auto it = dataset->getStartCoordinatesIterator(); it.valid; dataset->incrementCoordinatesIterator(it))
    dataset->setElement<double>(it, 2.0 * it.x + it.y * it.y - 3.0 * it.z);
  return handle;
}

FilterGraph readGraph(const std::string& text) {
  FilterGraph reader("g.txt");
  std::istringstream stream(text);
  reader.read(stream);
  return reader;
}

// The message of the GraphError that f throws, or "" when it throws none.
template <typename F>
std::string errorOf(F f) {
  try {
    f();
  } catch (const GraphError& error) {
    return error.what();
  }
  return std::string();
}

TEST(FilterGraph, DescriptionsWrittenByTheLibraryReadBackAsTheSameGraph) {
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

  FilterGraph reader = readGraph(text.str());
  ASSERT_EQ(reader.getNodes().size(), 5u);
  reader.connect({{0, source}});
  const std::vector<FilterGraph::Node>& nodes = reader.getNodes();
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

TEST(FilterGraph, CommentsAndBlankLinesSeparateDescriptions) {
  FilterGraph reader = readGraph(
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

TEST(FilterGraph, ReportsProblemsWithFileAndLine) {
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

TEST(FilterGraph, FindsCyclesWithoutRecursion) {
  // A chain of 20000 nodes whose first node uses the last one.
  std::ostringstream text;
  const int count = 20000;
  for (int id = 1; id <= count; ++id)
    text << "ID = " << id << "\nType = LinearTransformationDataset\nSourceDatasetIDList = "
         << (id == 1 ? count : id - 1) << "\n\n";
  FilterGraph reader = readGraph(text.str());
  const std::string message = errorOf([&reader] { reader.connect({}); });
  EXPECT_NE(message.find("the graph has a cycle"), std::string::npos) << message.substr(0, 200);
}

TEST(FilterGraph, LongChainsWithoutCyclesConnect) {
  std::ostringstream text;
  const int count = 3000;
  for (int id = 1; id <= count; ++id)
    text << "ID = " << id << "\nType = LinearTransformationDataset\nSourceDatasetIDList = " << id - 1
         << "\nSummand = 1\n\n";
  FilterGraph reader = readGraph(text.str());
  DatasetHandle input = makeRamp(DatasetCoordinates(2, 2, 1, 1, 1));
  reader.connect({{0, GetRawPtr(input)}});
  EXPECT_EQ(reader.chooseResult(-1), count);
  EXPECT_EQ(reader.findDataset(count)->getElement<double>(DatasetCoordinates(1, 1, 0, 0, 0)), 3.0 + count);
}

TEST(FilterGraph, ConnectionProblems) {
  DatasetHandle input = makeRamp(DatasetCoordinates(4, 4, 1, 1, 1));
  const auto connect = [&input](const std::string& text) {
    return errorOf([&] { readGraph(text).connect({{0, GetRawPtr(input)}}); });
  };
  EXPECT_EQ(connect("ID = 4\nType = SmoothDataset\nSourceDatasetIDList = 5\n")
                .rfind("g.txt:1: source ID 5 of node 4 names neither a description nor an input", 0),
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

TEST(FilterGraph, ChoosesTheResult) {
  FilterGraph reader = readGraph(
      "ID = 1\nType = CastDataset\nSourceDatasetIDList = 0\n\n"
      "ID = 2\nType = CastDataset\nSourceDatasetIDList = 0\n");
  DatasetHandle input = makeRamp(DatasetCoordinates(2, 2, 2, 1, 1));
  reader.connect({{0, GetRawPtr(input)}});
  EXPECT_EQ(errorOf([&reader] { reader.chooseResult(-1); }),
            "g.txt: the graph has several results (IDs 1, 2): choose one");
  EXPECT_EQ(reader.getResultIds(), (std::vector<int>{1, 2}));
  EXPECT_EQ(reader.chooseResult(2), 2);
  EXPECT_EQ(reader.chooseResult(0), 0);
  EXPECT_EQ(errorOf([&reader] { reader.chooseResult(3); }), "g.txt: no description or input has ID 3");
}

TEST(FilterGraph, KnowsEveryFilterOfTheLibrary) {
  for (const std::string& type : FilterGraph::getKnownTypes()) {
    DependentDataset* filter = FilterGraph::createFilter(type);
    ASSERT_NE(filter, nullptr) << type;
    EXPECT_EQ(filter->getTypeName(), type);
    delete filter;
  }
  EXPECT_EQ(FilterGraph::getKnownTypes().size(), 10u);
  EXPECT_EQ(FilterGraph::createFilter("EmptyDataset"), nullptr);
}

TEST(FilterGraph, MarginsAddUpAlongTheLongestPath) {
  DatasetHandle input = makeRamp(DatasetCoordinates(12, 10, 8, 1, 1));
  FilterGraph reader = readGraph(
      "ID = 1\nType = SmoothDataset\nSourceDatasetIDList = 0\nKernelXSize = 5\nKernelYSize = 3\nKernelZSize = 1\n\n"
      "ID = 2\nType = SmoothDataset\nSourceDatasetIDList = 1\nKernelXSize = 3\nKernelYSize = 3\nKernelZSize = 3\n\n"
      "ID = 3\nType = CastDataset\nSourceDatasetIDList = 0\n\n"
      "ID = 4\nType = VectorLengthDataset\nSourceDatasetIDList = 3 2\n");
  reader.connect({{0, GetRawPtr(input)}});
  const GraphMargins margins = sourceMargins(reader.findDataset(4), GetRawPtr(input));
  EXPECT_EQ(margins.before, DatasetCoordinates(3, 2, 1, 0, 0));
  EXPECT_EQ(margins.after, DatasetCoordinates(3, 2, 1, 0, 0));
  const GraphMargins direct = sourceMargins(reader.findDataset(3), GetRawPtr(input));
  EXPECT_EQ(direct.before, DatasetCoordinates(0, 0, 0, 0, 0));
  const GraphMargins unrelated = sourceMargins(reader.findDataset(3), reader.findDataset(1));
  EXPECT_EQ(unrelated.after, DatasetCoordinates(0, 0, 0, 0, 0));
}

TEST(FilterGraph, DescribedGraphsReadBackAsTheSameComputation) {
  DatasetHandle input = makeRamp(DatasetCoordinates(7, 6, 5, 1, 1));
  DatasetHandle other = makeRamp(DatasetCoordinates(7, 6, 5, 1, 1));
  // Built in code: a smoothing, two gradients of it, their length, a cast of it; IDs partly clashing.
  auto* smooth = new SmoothDataset();
  DatasetHandle smoothHandle(smooth);
  smooth->setSourceDataset(GetRawPtr(input));
  smooth->setParameters(3, 3, 1, 0.0);
  smooth->setDatasetID(0);  // the input's ID: gives way
  auto* gx = new GradientDataset();
  DatasetHandle gxHandle(gx);
  gx->setSourceDataset(smooth);
  gx->setDatasetID(7);
  auto* gy = new GradientDataset();
  DatasetHandle gyHandle(gy);
  gy->setSourceDataset(GetRawPtr(other));
  gy->setDatasetID(7);  // taken by gx: gets a new one
  auto* length = new VectorLengthDataset();
  DatasetHandle lengthHandle(length);
  length->setSourceDatasets({gx, gy});
  auto* cast = new CastDataset();
  DatasetHandle castHandle(cast);
  cast->setParameters(TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT);  // before the source: it fixes the element type
  cast->setSourceDataset(length);

  const std::string text = describeGraph(cast, {{GetRawPtr(input), 0}, {GetRawPtr(other), 4}});
  EXPECT_EQ(smooth->getDatasetID(), 0);
  EXPECT_EQ(gy->getDatasetID(), 7);
  EXPECT_EQ(length->getDatasetID(), -1);
  FilterGraph reader = readGraph(text);
  reader.connect({{0, GetRawPtr(input)}, {4, GetRawPtr(other)}});
  ASSERT_EQ(reader.getNodes().size(), 5u);
  const int resultId = reader.chooseResult(-1);
  Dataset* result = reader.findDataset(resultId);
  auto* readCast = dynamic_cast<DependentDataset*>(result);
  ASSERT_NE(readCast, nullptr);
  EXPECT_TRUE(readCast->isDatasetEquivalent(cast)) << text;
  EXPECT_NE(reader.findNode(7), nullptr);
  ASSERT_EQ(result->getSize(), cast->getSize());
  for (auto it = cast->getStartCoordinatesIterator(); it.valid; cast->incrementCoordinatesIterator(it)) {
    const DatasetCoordinates p(it.x, it.y, it.z, it.t, it.c);
    ASSERT_EQ(result->getElement<double>(p), cast->getElement<double>(p));
  }
  // The same text again: the description does not depend on memory addresses.
  EXPECT_EQ(describeGraph(cast, {{GetRawPtr(input), 0}, {GetRawPtr(other), 4}}), text);
  EXPECT_THROW(describeGraph(cast, {{GetRawPtr(input), 1}, {GetRawPtr(other), 1}}), GraphError);
}

}  // namespace
