#include "graphs.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "bblk.h"
#include "debug.h"
#include "dump.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "types.h"

namespace {

constexpr std::size_t LABEL_WIDTH = 72; // of a statement, in characters
constexpr int LABEL_LINES = 12;         // statements shown of a block

std::string title_of_block(const BBLK* bb) {
    return "BB" + std::to_string(bb->dfn) + " (uon " + std::to_string(bb->uon()) + ")";
}

std::string label_of_block(const BBLK* bb) {
    std::string label = title_of_block(bb);
    int lines = 0;
    for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
        // The transfer at the end is always shown.
        if (lines++ < LABEL_LINES || cell->next == nullptr)
            label += "\n" + shortened(tree_to_text(cell->first), LABEL_WIDTH);
        else if (lines == LABEL_LINES + 1)
            label += "\n...";
    }
    return label;
}

// The places of the blocks in a post-order walk from the entry, by UON, then of those that it does not reach.
// An edge to a block that is left no earlier than the one it comes from goes back to a block under way.
std::vector<int> post_order() {
    std::vector<BBLK*> finished;
    clear_visited();
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        if (bb->visited == 0) append_post_order(bb, &BBLK::successors, finished);
    std::vector<int> place(currfuninfo->blocks.size());
    for (std::size_t i = 0; i < finished.size(); i++) place[finished[i]->uon()] = static_cast<int>(i);
    return place;
}

std::string probability(const EDGE* edge) {
    if (edge->freq < 0) return {};
    char text[32];
    std::snprintf(text, sizeof text, "%.3g", edge->freq);
    return text;
}

std::string label_of_node(NODE* node) {
    std::string label;
    if (node->left == nullptr && node->right == nullptr) label = shortened(tree_to_text(node), LABEL_WIDTH);
    const char* name = opname(node->op);
    const std::string op = name != nullptr ? name : "op " + std::to_string(node->op);
    label = label.empty() || label == op ? op : op + " " + label;
    if (node->type != nullptr) label += "\n" + shortened(node->type->printstr(), LABEL_WIDTH);
    return label;
}

std::string label_of_function(const FUNINFO* function) {
    if (function == fileinfo.root) return "outside";
    std::string label = function->name + "\nsize " + std::to_string(function->size);
    const struct {
        std::uint32_t flag;
        const char* word;
    } words[] = {
        {FUN_is_main, "main"},
        {FUN_is_interrupt, "interrupt"},
        {FUN_is_extern, "external"},
        {FUN_is_anonymous, "address taken"},
        {FUN_is_suppressed, "suppressed"},
        {FUN_never_returns, "never returns"},
        {FUN_calls_anonymous, "calls through pointers"},
        {FUN_calls_OUTSIDE, "calls outside"},
    };
    for (const auto& [flag, word] : words)
        if (TEST_FLAG(function, flag)) label += std::string("\n") + word;
    return label;
}

std::string name_for(std::string_view part, const char* kind, GRAPH_FORMAT format) {
    return graph_file_name(o_file_name, i_file_name, part, kind, format);
}

} // namespace

void write_flow_graph(const char* path, GRAPH_FORMAT format) {
    const std::vector<int> place = post_order();
    GRAPH_WRITER writer(path, format, currfuninfo->name);
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        writer.node(bb->uon(), label_of_block(bb));
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next)
            writer.edge(bb->uon(), edge->bb->uon(), probability(edge),
                        place[edge->bb->uon()] >= place[bb->uon()] ? BACK_EDGE : FORWARD_EDGE);
    writer.close();
}

void write_expr_graph(const char* path, GRAPH_FORMAT format) {
    GRAPH_WRITER writer(path, format, currfuninfo->name);
    unsigned next = 0;
    struct ITEM {
        NODE* node;
        unsigned parent;
        const char* side; // null for the root of a statement
    };
    std::vector<ITEM> pending;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        writer.begin_group(bb->uon(), title_of_block(bb));
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            pending.push_back({cell->first, 0, nullptr});
            while (!pending.empty()) {
                const ITEM item = pending.back();
                pending.pop_back();
                const unsigned number = next++;
                writer.node(number, label_of_node(item.node));
                if (item.side != nullptr) writer.edge(item.parent, number, item.side);
                if (item.node->right != nullptr) pending.push_back({item.node->right, number, "right"});
                if (item.node->left != nullptr) pending.push_back({item.node->left, number, "left"});
            }
        }
        writer.end_group();
    }
    writer.close();
}

void write_function_graphs() {
    if (const int value = pass_debug("flow_graph")) {
        const GRAPH_FORMAT format = graph_format(value);
        write_flow_graph(name_for(currfuninfo->name, "flow", format).c_str(), format);
    }
    if (const int value = pass_debug("expr_graph")) {
        const GRAPH_FORMAT format = graph_format(value);
        write_expr_graph(name_for(currfuninfo->name, "expr", format).c_str(), format);
    }
}

void view_call_graph() {
    const GRAPH_FORMAT format = graph_format(dump_ocg_in_GDL);
    GRAPH_WRITER writer(name_for({}, "calls", format), format, i_file_name);
    // Functions that nothing reaches have no place in the order; they follow by name.
    std::vector<FUNINFO*> shown = fileinfo.ordered;
    for (FUNINFO* function : fileinfo.defined)
        if (function->cg_number < 0) shown.push_back(function);
    std::unordered_map<const FUNINFO*, unsigned> numbers;
    for (FUNINFO* function : shown) numbers.emplace(function, static_cast<unsigned>(numbers.size()));
    for (const FUNINFO* function : shown)
        writer.node(numbers.at(function), label_of_function(function),
                    function->cg_number < 0 || function == fileinfo.root ? FAINT_NODE : PLAIN_NODE);
    for (const FUNINFO* caller : shown)
        for (const CALL_EDGE* edge = caller->callees; edge != nullptr; edge = edge->next) {
            const auto callee = numbers.find(edge->callee);
            if (callee == numbers.end()) continue;
            const bool back = caller->cg_number >= 0 && edge->callee->cg_number <= caller->cg_number;
            writer.edge(numbers.at(caller), callee->second,
                        edge->ncalls > 1 ? std::to_string(edge->ncalls) : std::string(),
                        back ? BACK_EDGE : FORWARD_EDGE);
        }
    writer.close();
}
