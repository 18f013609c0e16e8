#include "opcodes.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unordered_map>

#include "if_file.h"

IF_NODE_INFO if_node_info[IF_NODE_INFO_SIZE];

void if_enter_node(int number, const char* name, int operands) {
    if (number < 0 || number >= IF_NODE_INFO_SIZE) if_fatal("\nINTERNAL ERROR: Invalid opcode, aborting\n");
    if_node_info[number] = {number, name, operands};
}

void if_node_table_init() {
    static bool filled = false;
    if (filled) return;
    filled = true;
#define OPCODE(number, name, operands, sp, precedence, effects)                                              \
    if (number < FIRST_INTERNAL_OPCODE) if_enter_node(number, #name, operands);
#include "opcodes.def"
#undef OPCODE
    if_enter_node(op::EPVAL, "EPVAL", 1);
}

int if_opcode_of_name(const char* name) {
    static const std::unordered_map<std::string, int> numbers = [] {
        if_node_table_init();
        std::unordered_map<std::string, int> map;
        for (const IF_NODE_INFO& info : if_node_info)
            if (info.name != nullptr) map.emplace(info.name, info.number);
        return map;
    }();
    const auto found = numbers.find(name);
    return found == numbers.end() ? -1 : found->second;
}
