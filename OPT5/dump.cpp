#include "dump.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <utility>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "fpsmath.h"
#include "node.h"
#include "opcodes.h"
#include "pragma.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

const char* infix_token(int op) {
    switch (op) {
        case PLUS: return " + ";
        case PLUSASG: return " += ";
        case MINUS: return " - ";
        case MINUSASG: return " -= ";
        case MULT:
        case PMCONV: return " * ";
        case MULTASG: return " *= ";
        case ANDB: return " & ";
        case ANDBASG: return " &= ";
        case ORB: return " | ";
        case ORBASG: return " |= ";
        case XORB: return " ^ ";
        case XORBASG: return " ^= ";
        case DIV:
        case PVCONV: return " / ";
        case DIVASG: return " /= ";
        case MOD: return " % ";
        case MODASG: return " %= ";
        case SLL: return " << ";
        case SLLASG: return " <<= ";
        case SRL: return " >> ";
        case SRLASG: return " >>= ";
        case ANDAND: return " && ";
        case OROR: return " || ";
        case EQ:
        case FEQ: return " == ";
        case NEQ:
        case FNEQN: return " != ";
        case LE:
        case FLE:
        case ULE: return " <= ";
        case LT:
        case FLT:
        case ULT: return " < ";
        case GE:
        case FGE:
        case UGE: return " >= ";
        case GT:
        case FGT:
        case UGT: return " > ";
        case ASG:
        case STASG:
        case ARASG: return " = ";
        case QUEST: return " ? ";
        case COLON: return " : ";
        case COMMA:
        case PCOMMA: return ", ";
        case COMMAOP: return " ,OP ";
        default: return nullptr;
    }
}

const char* prefix_token(int op) {
    switch (op) {
        case UMINUS: return "-";
        case UMULT: return "*";
        case UAND: return "&";
        case EXCLAIM: return "!";
        case NOTB: return "~";
        default: return nullptr;
    }
}

void append_quoted(std::string& out, const char* bytes, unsigned length) {
    constexpr unsigned LIMIT = 60;
    out += '"';
    for (unsigned i = 0; i < length && i < LIMIT; i++) {
        const auto c = static_cast<unsigned char>(bytes[i]);
        if (c == '"' || c == '\\') out += '\\';
        if (std::isprint(c) != 0) {
            out += static_cast<char>(c);
        } else {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02x", c);
            out += escape;
        }
    }
    out += length > LIMIT ? "\"..." : "\"";
}

std::string label_text(const NODE* node) {
    const LBL* label = node->label;
    if (label != nullptr && label->bb != nullptr) return "BB" + std::to_string(label->bb->dfn);
    return "L" + std::to_string(label != nullptr ? label->number : static_cast<int>(node->u.lval.low));
}

// Prints a tree without recursion: what is still to print waits on a stack, as nodes and as texts.
class PRINTER {
  public:
    std::string print(NODE* tree) {
        push(tree, 0);
        while (!pending_.empty()) {
            const ITEM item = pending_.back();
            pending_.pop_back();
            if (item.text != nullptr) {
                out_ += item.text;
            } else if (item.node != nullptr) {
                print_node(item.node, item.context);
            }
        }
        // Names and the words of pragmas may hold anything; the text stays on one line.
        for (char& c : out_)
            if (static_cast<unsigned char>(c) < ' ') c = ' ';
        return std::move(out_);
    }

  private:
    struct ITEM {
        NODE* node;
        const char* text; // a constant
        int context;      // an operator that binds less stands in parentheses
    };

    void push(NODE* node, int context) { pending_.push_back({node, nullptr, context}); }
    void push(const char* text) { pending_.push_back({nullptr, text, 0}); }
    // What follows is given in the order of printing.
    template <class... PARTS> void then(PARTS... parts) {
        const std::size_t bottom = pending_.size();
        (push_part(parts), ...);
        std::reverse(pending_.begin() + static_cast<std::ptrdiff_t>(bottom), pending_.end());
    }
    void push_part(NODE* node) { push(node, 0); }
    void push_part(const char* text) { push(text); }
    void push_part(ITEM item) { pending_.push_back(item); }

    void print_node(NODE* node, int context);
    bool print_leaf(NODE* node);
    bool print_statement(NODE* node);
    void print_operator(NODE* node, int context);

    std::string out_;
    std::vector<ITEM> pending_;
};

bool PRINTER::print_leaf(NODE* node) {
    switch (node->op) {
        case NAME: out_ += node->symbol() != nullptr ? node->symbol()->name : "<null>"; return true;
        case ICON:
        case LCON: out_ += int2text(node->u.lval); return true;
        case FCON: out_ += fval2text(node->fval(), node->type); return true;
        case SCON: append_quoted(out_, node->text, node->text_length); return true;
        case FIELD: out_ += node->mdata->name; return true;
        case LABEL: out_ += label_text(node); return true;
        case SKIP: out_ += "SKIP " + int2text(node->u.lval); return true;
        case LABELDEF: out_ += label_text(node) + ":"; return true;
        case PPRAGMA:
            out_ += std::string("#pragma ") + node->pragma()->name();
            for (const std::string& arg : node->pragma()->args) out_ += " " + arg;
            return true;
        case ASM:
            out_ += std::string(node->u.lval.low == 47 ? "comment " : "asm ");
            append_quoted(out_, node->text,
                          static_cast<unsigned>(std::char_traits<char>::length(node->text)));
            return true;
        default: return false;
    }
}

bool PRINTER::print_statement(NODE* node) {
    switch (node->op) {
        case IF:
            then("if (", node->left, ") goto ", node->right->left, "; else goto ", node->right->right);
            return true;
        case CBRANCH: then("unless (", node->left, ") goto ", node->right); return true;
        case BRANCH: then("goto ", node->left); return true;
        case SWITCH: then("switch (", node->left, ") { ", node->right, " }"); return true;
        case CASE: then("case ", node->left, ": goto ", node->right); return true;
        case DEFAULT: then("default: goto ", node->left); return true;
        case RETURN: then("return ", node->right); return true;
        case URETURN: then("return"); return true;
        default: return false;
    }
}

void PRINTER::print_operator(NODE* node, int context) {
    const int rank = precedence[node->op];
    const char* open = rank < context ? "(" : "";
    const char* close = rank < context ? ")" : "";
    if (const char* token = infix_token(node->op); token != nullptr && node->right != nullptr) {
        const int right_to_left = side_effects[node->op] == SE_ASSIGNS ? 1 : 0;
        then(open, ITEM{node->left, nullptr, rank + right_to_left}, token,
             ITEM{node->right, nullptr, rank + 1 - right_to_left}, close);
    } else if (const char* prefix = prefix_token(node->op)) {
        then(open, prefix, ITEM{node->left, nullptr, rank}, close);
    } else {
        const char* name = opname(node->op);
        then(name != nullptr ? name : "???", "(", node->left, node->right != nullptr ? ", " : "", node->right,
             ")");
    }
}

void PRINTER::print_node(NODE* node, int context) {
    if (print_leaf(node) || print_statement(node)) return;
    const ITEM object{node->left, nullptr, 15};
    switch (node->op) {
        case STDOT: then(object, ".", node->right); break;
        case STREF: then(object, "->", node->right); break;
        case CALL:
        case UCALL: {
            const bool direct = node->left->op == UAND;
            then(ITEM{direct ? node->left->left : node->left, nullptr, 15}, "(", node->right, ")");
            break;
        }
        case ICALL:
        case UICALL:
        case MCALL:
        case UMCALL:
            out_ += node->intrinsic();
            then("(", node->left, ")");
            break;
        case SCONV:
        case PCONV:
        case ACONV:
        case ISP2CHAR:
            out_ += "(" + node->type->printstr() + ")";
            push(node->left, 14);
            break;
        case PLUSPLUS: then(object, "++ by ", node->right); break;
        case MINMIN: then(object, "-- by ", node->right); break;
        default: print_operator(node, context); break;
    }
}

void append_edges(std::string& out, const char* what, const EDGE* list) {
    out += std::string("   ") + what + ":";
    for (; list != nullptr; list = list->next) out += " BB" + std::to_string(list->bb->dfn);
    out += '\n';
}

void append_block(std::string& out, const BBLK* bb, bool types) {
    const std::string uon = std::to_string(bb->uon()), dfn = std::to_string(bb->dfn);
    out += "\n:::: BASIC BLOCK DUMP: " + currfuninfo->name + ", UON=" + uon + ", DFN=" + dfn + "\n";
    out += "   uon=" + uon + ", dfn=" + dfn + "\n";
    append_edges(out, "predecessors", bb->predecessors);
    append_edges(out, "successors", bb->successors);
    constexpr int DEEPEST = 8;
    const int level = bb->loop != nullptr ? std::min<int>(bb->loop->level, DEEPEST) : 0;
    for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
        char line[16];
        std::snprintf(line, sizeof line, "%5u ", cell->psn != nullptr ? cell->psn->line : 0);
        out += line;
        out.append(static_cast<std::size_t>(2 * level), ' ');
        out += tree_to_text(cell->first) + ";\n";
        if (types && cell->first->type != nullptr) out += "\t\t-- " + cell->first->type->printstr() + "\n";
    }
}

// What dump_state has written last, and of which function; it holds nothing once another function, or a
// barrier, has had its turn.
std::string last_state;
const FUNINFO* last_function = nullptr;

} // namespace

std::string tree_to_text(NODE* tree) { return PRINTER().print(tree); }

void prbbinfix(int first, int last, int types) {
    if (print_debug == 0 || currfuninfo == nullptr) return;
    // Written at once, as each call of dprintf flushes.
    std::string text;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        if ((first == 0 || bb->dfn >= first) && (last == 0 || bb->dfn <= last))
            append_block(text, bb, types != 0);
    dprintf("%s", text.c_str());
}

void dump_state(STATE_TIME when) {
    constexpr const char* names[] = {"BEFORE", "AFTER", "AS WRITTEN"};
    if (print_debug == 0) return;
    if (currfuninfo == nullptr || currfuninfo->bb_list == nullptr) {
        last_function = nullptr;
        return;
    }
    if (pass_debug("dump_changes") == 0) {
        prbbinfix(0, 0, 0);
        return;
    }
    if (when == STATE_BEFORE && last_function == currfuninfo) return;
    std::string text;
    text.reserve(last_state.size() + 256);
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) append_block(text, bb, false);
    if (last_function == currfuninfo && text == last_state) return;
    int blocks = 0, operators = 0;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next, blocks++)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            operators += count_nodes_in_tree(cell->first);
    dprintf("\n<<<< STATE %s: %d blocks, %d operators\n%s", names[when], blocks, operators, text.c_str());
    last_function = currfuninfo;
    last_state = std::move(text);
}

void dump_function_header() {
    if (print_debug == 0 || currfuninfo == nullptr) return;
    dprintf("\n\n==== FUNCTION %s", currfuninfo->name.c_str());
    if (currfuninfo->psn != nullptr)
        dprintf(", %s line %u", currfuninfo->source_file, currfuninfo->psn->line);
    dprintf("\n\n");
}
