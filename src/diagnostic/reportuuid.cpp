#include <diagnostic/reportuuid.h>

#include <uuid/uuid.h>

namespace KELP::Diagnostic {

ReportUuid::ReportUuid() {
  ::uuid_clear(bytes_);
}

ReportUuid::ReportUuid(const unsigned char (&bytes)[16]) {
  ::uuid_copy(bytes_, bytes);
}

ReportUuid& ReportUuid::operator=(const unsigned char (&bytes)[16]) {
  ::uuid_copy(bytes_, bytes);
  return *this;
}

bool ReportUuid::operator==(const ReportUuid& other) const {
  return *this == other.bytes_;
}

bool ReportUuid::operator==(const unsigned char (&bytes)[16]) const {
  return ::uuid_compare(bytes_, bytes) == 0;
}

bool ReportUuid::operator!=(const ReportUuid& other) const {
  return !(*this == other.bytes_);
}

bool ReportUuid::operator!=(const unsigned char (&bytes)[16]) const {
  return !(*this == bytes);
}

void ReportUuid::randomize() {
  ::uuid_generate_random(bytes_);
}

bool ReportUuid::isNull() const {
  return ::uuid_is_null(bytes_) == 1;
}

bool ReportUuid::parse(const char* text) {
  return text != nullptr && ::uuid_parse(text, bytes_) == 0;
}

void ReportUuid::unparse(char* out) const {
  ::uuid_unparse(bytes_, out);
}

void ReportUuid::unparseUpper(char* out) const {
  ::uuid_unparse_upper(bytes_, out);
}

void ReportUuid::unparseLower(char* out) const {
  ::uuid_unparse_lower(bytes_, out);
}

std::string ReportUuid::toString() const {
  char text[kTextBufferSize] = {};
  unparse(text);
  return text;
}

}  // namespace KELP::Diagnostic
