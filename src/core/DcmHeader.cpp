#include "core/DcmHeader.h"

namespace tarv {

DcmHeader::~DcmHeader() = default;

void DcmHeader::setValue(unsigned short group, unsigned short element, const std::string& value) {
  values_[{group, element}] = value;
}

std::string DcmHeader::getValue(unsigned short group, unsigned short element) const {
  const auto it = values_.find({group, element});
  return it == values_.end() ? std::string() : it->second;
}

bool DcmHeader::hasTag(unsigned short group, unsigned short element) const {
  return values_.count({group, element}) != 0;
}

bool DcmHeader::removeTag(unsigned short group, unsigned short element) {
  return values_.erase({group, element}) != 0;
}

}  // namespace tarv
