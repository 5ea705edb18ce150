#pragma once

#include <bitset>
#include <cstddef>
#include <initializer_list>

namespace KELP::OS {

/**
 * A set of options that are the enumerators of @p E, kept as @p N bits.
 *
 * The numeric value of an enumerator is the number of its bit and must be below @p N. A plain value
 * without any thread rule of its own.
 */
template <typename E, std::size_t N>
class EnumBitset {
 public:
  /** The empty set. */
  EnumBitset() = default;

  /** The set of the enumerators in @p members. Throws `std::out_of_range` for one that has no bit.
   */
  EnumBitset(std::initializer_list<E> members) {
    for (const E member : members) {
      set(member);
    }
  }

  /** The set whose bits are those of @p value; bits at @p N and above are dropped. */
  [[nodiscard]] static EnumBitset fromValue(unsigned long value) {
    EnumBitset result;
    result.bits_ = std::bitset<N>(value);
    return result;
  }

  /** The bits as a number: bit 0 is the enumerator with the value 0. */
  [[nodiscard]] unsigned long value() const { return bits_.to_ulong(); }

  /** Whether @p member is in the set. Throws `std::out_of_range` for one that has no bit. */
  [[nodiscard]] bool test(E member) const { return bits_.test(static_cast<std::size_t>(member)); }

  /** Puts @p member into the set, or takes it out. Throws `std::out_of_range` as test() does. */
  EnumBitset& set(E member, bool on = true) {
    bits_.set(static_cast<std::size_t>(member), on);
    return *this;
  }

  friend bool operator==(const EnumBitset& a, const EnumBitset& b) { return a.bits_ == b.bits_; }
  friend bool operator!=(const EnumBitset& a, const EnumBitset& b) { return a.bits_ != b.bits_; }

 private:
  std::bitset<N> bits_;
};

}  // namespace KELP::OS
