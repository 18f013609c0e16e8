#include "snmap.h"

#include "copy.h"
#include "dump.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "symbol.h"

SNMAP::ENTRY* SNMAP::find(const SYMTAB* symbol) const {
    if (table_ == nullptr) return nullptr;
    const auto found = table_->index.find(symbol);
    return found != table_->index.end() ? &table_->entries[found->second] : nullptr;
}

NODE* SNMAP::value(const SYMTAB* symbol, bool copy) const {
    const ENTRY* entry = find(symbol);
    if (entry == nullptr) return nullptr;
    return copy ? copy_tree(entry->tree, false) : entry->tree;
}

void SNMAP::set_value(SYMTAB* symbol, NODE* tree) {
    if (ENTRY* entry = find(symbol); entry != nullptr) {
        erase_tree(entry->tree);
        entry->tree = tree;
        return;
    }
    if (table_ == nullptr) table_ = std::make_unique<TABLE>();
    table_->index.emplace(symbol, table_->entries.size());
    table_->entries.push_back({symbol, tree});
}

void SNMAP::remove(const SYMTAB* symbol) {
    ENTRY* entry = find(symbol);
    if (entry == nullptr) return;
    erase_tree(entry->tree);
    *entry = {nullptr, nullptr};
    table_->index.erase(symbol);
}

void SNMAP::clear() {
    if (table_ == nullptr) return;
    for (const ENTRY& entry : table_->entries) erase_tree(entry.tree);
    table_ = nullptr;
}

void SNMAP::print(std::FILE* stream) const {
    std::fprintf(stream, "SYMBOL/NODE MAP INFORMATION FOR %s()\n", currfuninfo->name.c_str());
    if (table_ == nullptr) {
        std::fprintf(stream, "\t<<NULL SNMAP>>\n");
    } else if (count() == 0) {
        std::fprintf(stream, "\t<<EMPTY SNMAP>>\n");
    } else {
        for (const ENTRY& entry : table_->entries) {
            if (entry.symbol == nullptr) continue;
            std::fprintf(stream, "\t%s", entry.symbol->name);
            std::fprintf(stream, " --> %s\n", tree_to_text(entry.tree).c_str());
        }
    }
}
