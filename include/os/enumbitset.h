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
 *
 * @tparam E the enumeration.
 * @tparam N the number of bits.
 */
template <typename E, std::size_t N>
class EnumBitset {
 public:
  /** The empty set. */
  EnumBitset() = default;

  /**
   * The set of some enumerators.
   *
   * @param members the enumerators.
   * @throws std::out_of_range for one that has no bit.
   */
  EnumBitset(std::initializer_list<E> members) {
    for (const E member : members) {
      set(member);
    }
  }

  /**
   * The set that a number stands for.
   *
   * @param value its bits; those at @p N and above are dropped.
   * @return the set.
   */
  [[nodiscard]] static EnumBitset fromValue(unsigned long value) {
    EnumBitset result;
    result.bits_ = std::bitset<N>(value);
    return result;
  }

  /** The bits as a number. @return it; its bit 0 is the enumerator with the value 0. */
  [[nodiscard]] unsigned long value() const { return bits_.to_ulong(); }

  /**
   * Whether an enumerator is in the set.
   *
   * @param member the enumerator.
   * @return true if so.
   * @throws std::out_of_range for one that has no bit.
   */
  [[nodiscard]] bool test(E member) const { return bits_.test(static_cast<std::size_t>(member)); }

  /**
   * Puts an enumerator into the set, or takes it out.
   *
   * @param member the enumerator.
   * @param on     whether it shall be in the set.
   * @return this set.
   * @throws std::out_of_range for one that has no bit.
   */
  EnumBitset& set(E member, bool on = true) {
    bits_.set(static_cast<std::size_t>(member), on);
    return *this;
  }

  /** Compares. @param a a set. @param b a set. @return whether both have the same members. */
  friend bool operator==(const EnumBitset& a, const EnumBitset& b) { return a.bits_ == b.bits_; }
  /** Compares. @param a a set. @param b a set. @return whether their members differ. */
  friend bool operator!=(const EnumBitset& a, const EnumBitset& b) { return a.bits_ != b.bits_; }

 private:
  std::bitset<N> bits_;
};

}  // namespace KELP::OS
