#include "spmap.h"

#include <cinttypes>

#include "aliasing.h"
#include "fileopt.h"
#include "files.h"
#include "symbol.h"

POINTEE SPMAP::pointee(const SYMTAB* pointer) const {
    const auto found = map_.find(pointer);
    return found != map_.end() ? found->second : POINTEE{};
}

bool SPMAP::set_pointee(SYMTAB* pointer, NODE* address) {
    const POINTEE place = place_of_pointer(address);
    if (place.object == nullptr) return false;
    if (map_.insert_or_assign(pointer, place).second) order_.push_back(pointer);
    return true;
}

void SPMAP::clear() {
    map_ = {};
    order_ = {};
}

void SPMAP::print(std::FILE* stream) const {
    std::fprintf(stream, "SYMBOL/POINTEE MAP INFORMATION FOR %s()\n", currfuninfo->name.c_str());
    if (order_.empty()) std::fprintf(stream, "\t<<EMPTY SPMAP>>\n");
    for (const SYMTAB* pointer : order_) {
        const POINTEE place = pointee(pointer);
        std::fprintf(stream, "\t%s --> %s", pointer->name, place.object->name);
        if (place.is_precise) {
            std::fprintf(stream, " + %" PRId64 "\n", place.offset);
        } else {
            std::fprintf(stream, " + ?\n");
        }
    }
}
