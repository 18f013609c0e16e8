#include "tools/icode-run/library.h"

#include <unordered_map>

namespace run {

float library_call::number(std::size_t i) const {
    const scalar& as = infos_[i].rep;
    return as.is_float() ? as_float(values_[i]) : integer_to_float(values_[i], as.is_signed);
}

const library_function* find_library(std::string_view name) {
    static const auto index = [] {
        std::unordered_map<std::string_view, const library_function*> made;
        for (const auto* table : {&stdio_functions(), &string_functions(), &utility_functions(),
                                  &math_functions(), &exception_functions(), &flow_functions()})
            for (const library_function& f : *table) made.emplace(f.name, &f);
        return made;
    }();
    auto found = index.find(name);
    return found == index.end() ? nullptr : found->second;
}

} // namespace run
