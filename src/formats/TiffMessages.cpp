#include "formats/TiffMessages.h"

#include <cstdarg>
#include <cstdio>

namespace tarv::formats {

namespace {

int collectError(TIFF*, void* userData, const char* module, const char* format, va_list arguments) {
  auto* errors = static_cast<TiffErrors*>(userData);
  char buffer[512];
  std::vsnprintf(buffer, sizeof buffer, format, arguments);
  std::string text = buffer;
  if (module != nullptr && *module != '\0') text = std::string(module) + ": " + text;
  for (char& c : text)
    if (c == '\n' || c == '\r') c = ' ';
  if (errors->count++ == 0) errors->first = text;
  errors->last = text;
  return 1;
}

int dropWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

}  // namespace

std::string TiffErrors::suffix() const { return count == 0 ? std::string() : " (libtiff: " + first + ")"; }

TiffHandle openTiffFileCollectingErrors(const std::string& path, const char* mode, TiffErrors& errors) {
  TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
  if (options == nullptr) return TiffHandle();
  TIFFOpenOptionsSetErrorHandlerExtR(options, collectError, &errors);
  TIFFOpenOptionsSetWarningHandlerExtR(options, dropWarning, nullptr);
  // No single allocation of libtiff beyond what any real page needs, whatever a header claims.
  TIFFOpenOptionsSetMaxSingleMemAlloc(options, tmsize_t{1} << 30);
  TiffHandle handle(TIFFOpenExt(path.c_str(), mode, options));
  TIFFOpenOptionsFree(options);
  return handle;
}

}  // namespace tarv::formats
