// Formatted output: the printf family.

#ifndef ICODE_RUN_FORMAT_H
#define ICODE_RUN_FORMAT_H

#include <cstdint>
#include <string>

#include "tools/icode-run/library.h"

namespace run {

// Where the values for a format come from.
class value_source {
  public:
    virtual ~value_source() = default;
    // The next argument as an integer of that width; more arguments than there are is a fault.
    virtual std::uint64_t integer(const scalar& as, std::uint32_t align) = 0;
    virtual float number() = 0;
};

// The arguments of a call, from the given one on. An argument of another width than the format says is taken
// as it was passed.
class call_values final : public value_source {
  public:
    call_values(const library_call& call, std::size_t first) : call_(call), next_(first) {}
    std::uint64_t integer(const scalar& as, std::uint32_t align) override;
    float number() override;

  private:
    std::size_t take();
    const library_call& call_;
    std::size_t next_;
};

// Arguments in memory, in ascending addresses, each aligned for its type.
class list_values final : public value_source {
  public:
    list_values(machine& vm, address list) : vm_(vm), next_(list) {}
    std::uint64_t integer(const scalar& as, std::uint32_t align) override;
    float number() override;

  private:
    std::uint64_t take(const scalar& as, std::uint32_t units, std::uint32_t align);
    machine& vm_;
    address next_;
};

// The text that the format in memory makes of the values.
std::string format_text(machine& vm, address format, value_source& values);

} // namespace run

#endif
