// The built-in library and the intrinsics, by name.

#ifndef ICODE_RUN_LIBRARY_H
#define ICODE_RUN_LIBRARY_H

#include <cstdint>
#include <string_view>
#include <vector>

#include "tools/icode-run/code.h"
#include "tools/icode-run/memory.h"

namespace run {

class machine;

// One call of a library function: its arguments as the program gave them.
class library_call {
  public:
    library_call(machine& m, const std::vector<argument_info>& infos, const std::uint64_t* values)
        : vm(m), infos_(infos), values_(values) {}

    machine& vm;

    std::size_t count() const { return infos_.size(); }
    const scalar& rep(std::size_t i) const { return infos_[i].rep; }
    std::uint64_t raw(std::size_t i) const { return values_[i]; }
    std::int64_t integer(std::size_t i) const { return static_cast<std::int64_t>(values_[i]); }
    address pointer(std::size_t i) const { return static_cast<address>(values_[i]); }
    // A floating argument; an integer is converted.
    float number(std::size_t i) const;

  private:
    const std::vector<argument_info>& infos_;
    const std::uint64_t* values_;
};

// What has to be done by the machine itself instead of by a plain function.
enum class special : std::uint8_t { NONE, SETJMP };

struct library_function {
    std::string_view name;
    unsigned arguments;                    // at least
    std::uint64_t (*run)(library_call& c); // the result, cut to the call's type by the caller
    special what = special::NONE;
};

// The built-in function of that name, or null.
const library_function* find_library(std::string_view name);

// An operator by name, of the ICALL family.
struct intrinsic {
    std::string_view name;
    unsigned arguments; // at least
    // The result in representation `result`.
    std::uint64_t (*run)(const std::uint64_t* values, const argument_info* infos, const scalar& result);
    bool is_function; // a program may call it as a function
};

// The intrinsic that yields 0, and yields the value of the catch when an exception has been caught. It is the
// machine's own and stands in no table.
constexpr std::string_view EH_SWITCH = "__eh_switch";

// The intrinsic of that name, or null.
const intrinsic* find_intrinsic(std::string_view name);

// The intrinsic that a call of the external function of that name, which nothing defines, stands for: by its
// own name or behind the prefix of externals; or null.
const intrinsic* find_intrinsic_function(std::string_view name);

// Tables of the library's parts; each ends where its vector ends.
const std::vector<library_function>& stdio_functions();
const std::vector<library_function>& string_functions();
const std::vector<library_function>& utility_functions();
const std::vector<library_function>& math_functions();
const std::vector<library_function>& exception_functions();
const std::vector<library_function>& flow_functions();

} // namespace run

#endif
