#include "psn.h"

#include <string>
#include <unordered_set>

namespace {

struct TEXT_HASH {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
};

} // namespace

const char* intern_text(std::string_view text) {
    // Node-based, so the texts never move.
    static std::unordered_set<std::string, TEXT_HASH, std::equal_to<>> texts;
    auto found = texts.find(text);
    if (found == texts.end()) found = texts.emplace(text).first;
    return found->c_str();
}
