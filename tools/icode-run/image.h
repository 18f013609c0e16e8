// The loaded program: where every global object, string and function is, and what it holds at the start.

#ifndef ICODE_RUN_IMAGE_H
#define ICODE_RUN_IMAGE_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/icode-run/memory.h"
#include "tools/icode-run/scalar.h"
#include "tools/model/program.h"

namespace run {

struct library_function;

// A file whose content can not be run. The text is one line for the user.
struct bad_program : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What a name at global level stands for.
struct global_place {
    enum KIND { OBJECT, FUNCTION, LIBRARY, UNDEFINED };
    KIND kind = UNDEFINED;
    address at = 0;                            // OBJECT
    std::uint32_t units = 0;                   // OBJECT
    std::uint32_t function = 0;                // FUNCTION: index in program.functions
    const library_function* library = nullptr; // LIBRARY
    const std::string* name = nullptr;
};

// Widths that the library needs, from the types that the file itself uses.
struct data_model {
    scalar plain_int{scalar::INTEGER, 16, true};
    scalar long_int{scalar::INTEGER, 32, true};
    scalar long_long{scalar::INTEGER, 64, true};
    scalar pointer{scalar::POINTER, 16, false};
    std::uint32_t int_align = 1, long_align = 2, long_long_align = 2, double_align = 2, pointer_align = 1;
    std::uint32_t double_units = 2;
};

class image {
  public:
    // Lays out all globals and stores their initial values. Throws bad_program, or fault when they do not
    // fit. The program must outlive the image.
    explicit image(const model::program& program);

    const model::program& program;
    data_model model;
    memory mem;

    const global_place& place_of(const model::symbol* symbol) const { return places_.at(symbol); }

    // The address of an anonymous constant array of these units; equal texts share one.
    address text_address(std::string_view units);
    // The address that stands for the function; the place must not be an OBJECT.
    address function_address(const global_place& place);
    // The function at that address, or null.
    const global_place* function_at(address at) const;

    // Standard streams: 0 input, 1 output, 2 error; -1 for an address that is none of them. A stream's handle
    // is the address 1, 2 or 3, or that of an object which the program declares under the stream's name.
    int stream_of(address handle) const;
    address errno_address() const { return errno_; } // 0 when the program has no such object

  private:
    void find_data_model();
    void place_globals();
    global_place place_object(const model::symbol& symbol);
    global_place place_builtin_object(const model::symbol& symbol);
    void initialise(const model::symbol& symbol, address at);
    std::uint64_t constant(const model::tree* tree, const model::symbol& symbol);

    std::unordered_map<const model::symbol*, global_place> places_;
    std::unordered_map<std::string, address> texts_;
    std::unordered_map<address, global_place> functions_;
    std::unordered_map<std::uint32_t, address> addresses_of_bodies_; // by index of function
    std::unordered_map<std::string_view, address> addresses_of_others_;
    static constexpr address STREAM_HANDLES = 1;
    address streams_[3] = {};
    address errno_ = 0;
};

// Units that objects of the type take: the type's own size, or else the symbol's.
std::uint32_t units_of(TYPE* type);
std::uint32_t align_of(TYPE* type);

} // namespace run

#endif
