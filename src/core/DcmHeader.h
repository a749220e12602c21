#ifndef TARV_CORE_DCMHEADER_H
#define TARV_CORE_DCMHEADER_H

#include <map>
#include <string>
#include <utility>

namespace tarv {

// The DICOM header of a dataset: string values keyed by (group, element) tag, in tag order.
class DcmHeader {
public:
  using Tag = std::pair<unsigned short, unsigned short>;

  DcmHeader() = default;
  DcmHeader(const DcmHeader&) = default;
  DcmHeader& operator=(const DcmHeader&) = default;
  virtual ~DcmHeader();

  // Sets or replaces the value of a tag.
  void setValue(unsigned short group, unsigned short element, const std::string& value);
  // The value of a tag; empty when the tag is absent.
  std::string getValue(unsigned short group, unsigned short element) const;
  bool hasTag(unsigned short group, unsigned short element) const;
  // Removes a tag; returns whether it was present.
  bool removeTag(unsigned short group, unsigned short element);

  // All tags and values, ordered by group, then element.
  const std::map<Tag, std::string>& getValues() const { return values_; }

private:
  std::map<Tag, std::string> values_;
};

}  // namespace tarv

#endif
