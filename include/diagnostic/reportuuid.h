#pragma once

#include <os/export.h>

#include <cstddef>
#include <functional>
#include <string>

namespace KELP::Diagnostic {

/**
 * The identity of one report: a UUID. It names the report's directory, stands in the report's own
 * metadata, and is the key by which reports are passed around.
 *
 * A plain value of exactly 16 bytes, in the order of the text form; the null identifier is all
 * zero. A moved-from identifier keeps its value. No operation logs. Identifiers can be keys of
 * unordered containers: `std::hash` is specialised for them.
 */
class KELP_EXPORT ReportUuid {
 public:
  /** Characters in the text form: 8-4-4-4-12 hexadecimal digits with hyphens. */
  static constexpr std::size_t kTextLength = 36;
  /** What a buffer for the text form must hold: the characters and the terminating NUL. */
  static constexpr std::size_t kTextBufferSize = kTextLength + 1;

  /** The null identifier. */
  ReportUuid();
  /** The identifier with the given bytes. @param bytes all 16 of it. */
  ReportUuid(const unsigned char (&bytes)[16]);  // NOLINT(google-explicit-constructor)

  /** A copy. */
  ReportUuid(const ReportUuid&) = default;
  /** A copy. */
  ReportUuid(ReportUuid&&) = default;
  /** Takes the value of another one. @return this identifier. */
  ReportUuid& operator=(const ReportUuid&) = default;
  /** Takes the value of another one. @return this identifier. */
  ReportUuid& operator=(ReportUuid&&) = default;
  /** Takes the given bytes. @param bytes all 16 of it. @return this identifier. */
  ReportUuid& operator=(const unsigned char (&bytes)[16]);
  ~ReportUuid() = default;

  /** Compares. @param other what to compare with. @return whether all bytes are equal. */
  bool operator==(const ReportUuid& other) const;
  /** Compares. @param bytes what to compare with. @return whether all bytes are equal. */
  bool operator==(const unsigned char (&bytes)[16]) const;
  /** Compares. @param other what to compare with. @return whether any byte is not equal. */
  bool operator!=(const ReportUuid& other) const;
  /** Compares. @param bytes what to compare with. @return whether any byte is not equal. */
  bool operator!=(const unsigned char (&bytes)[16]) const;

  /** Takes a new random (version 4) value. */
  void randomize();

  /** Whether all bytes are zero. @return true if so. */
  [[nodiscard]] bool isNull() const;

  /**
   * Takes the value of a text form, in either case.
   *
   * @param text the 36 characters and a NUL; a null pointer is not a text form.
   * @return false for any other text; the value is then what it was.
   */
  bool parse(const char* text);

  /** Writes the text form and a NUL in libuuid's default case. @param out kTextBufferSize bytes. */
  void unparse(char* out) const;
  /** Writes the text form and a NUL in upper case. @param out kTextBufferSize bytes. */
  void unparseUpper(char* out) const;
  /** Writes the text form and a NUL in lower case, as directories and stored metadata have it.
   *  @param out kTextBufferSize bytes. */
  void unparseLower(char* out) const;

  /** The bytes themselves. @return the first of 16, valid as long as the object. */
  [[nodiscard]] const unsigned char* raw() const { return bytes_; }

  /** The text form in libuuid's default case. @return its 36 characters. */
  [[nodiscard]] std::string toString() const;

 private:
  unsigned char bytes_[16];
};

static_assert(sizeof(ReportUuid) == 16, "the object is its bytes and nothing else");

}  // namespace KELP::Diagnostic

/// @cond
/** Lets identifiers be keys of unordered containers. */
template <>
struct std::hash<KELP::Diagnostic::ReportUuid> {
  std::size_t operator()(const KELP::Diagnostic::ReportUuid& id) const noexcept {
    // Random identifiers are their own best hash, but given ones may differ in any byte: FNV-1a.
    std::size_t result = 14695981039346656037ULL;
    for (std::size_t i = 0; i < sizeof(id); ++i) {
      result = (result ^ id.raw()[i]) * 1099511628211ULL;
    }
    return result;
  }
};
/// @endcond
