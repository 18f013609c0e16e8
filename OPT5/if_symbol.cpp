// Symbols, pragmas, initialisers, exception tables and expression trees: reading and writing.
//
// A tree is a sequence of node records in prefix order. Both directions keep an explicit stack, since the
// depth of a tree is the input's to choose.

#include <memory>

#include "base_node.h"
#include "if_file.h"
#include "pragma.h"
#include "types.h"

namespace {

// Limits of the format on exception tables.
constexpr std::uint32_t MAX_EHT_ENTRIES = 0x6600000;
constexpr std::uint32_t MAX_CATCH_ENTRIES = 0xaa00000;

bool is_signed_type(TYPE* type) { return type != nullptr && type->is_signed(); }

bool is_floating(const BASE_NODE* node) {
    return node != nullptr && node->node_type() != nullptr && node->node_type()->is_fltpt();
}

// The floating form of a comparison, for a parser that knows only the plain forms; the operator itself for
// all others.
int floating_comparison(int code) {
    switch (code) {
        case op::EQ: return op::FEQ;
        case op::NEQ: return op::FNEQN;
        case op::LE:
        case op::ULE: return op::FLE;
        case op::LT:
        case op::ULT: return op::FLT;
        case op::GE:
        case op::UGE: return op::FGE;
        case op::GT:
        case op::UGT: return op::FGT;
        default: return code;
    }
}

} // namespace

// --- Symbols.

void I_FILE::if_enter_global(I_SYMTAB* symbol) {
    symbol->index = static_cast<std::uint32_t>(globals_.size());
    symbol->set_level(0);
    globals_.push_back(symbol);
    const PSN* psn = symbol->sym_psn();
    if (writing_ && psn != nullptr) i_enter_file_name(psn->file != nullptr ? psn->file : "NO_FILE");
}

void I_FILE::if_enter_local(I_SYMTAB* symbol) {
    symbol->index = static_cast<std::uint32_t>(locals_.size());
    symbol->set_level(level_);
    locals_.push_back(symbol);
}

I_SYMTAB* I_FILE::find_symbol(std::uint32_t level, std::uint32_t index) {
    if (level == NULL_LEVEL) return nullptr;
    const std::vector<I_SYMTAB*>& symbols = level == 0 ? globals_ : locals_;
    if (index >= symbols.size())
        bad_file(std::string(level == 0 ? "global" : "local") + " symbol " + std::to_string(index) +
                 " is not in the table");
    return symbols[index];
}

I_SYMTAB* I_FILE::if_read_symbol_def() {
    SYMBOL_RECORD record;
    const std::string name = i_read_string();
    PSN psn{};
    record.name = name.c_str();
    record.size = i_read_uint();
    record.value = i_read_uint();
    record.sclass = i_read_s8();
    record.cqual = i_read_u16();
    record.type = i_read_typeref();
    record.cpp_type = i_read_typeref();
    record.align = i_read_uint();
    record.prag_num = i_read_s8();
    record.location = i_read_uint();
    record.option_set = i_read_uint();
    record.psn = i_read_psn(psn) ? &psn : nullptr;
    if (version_ >= -71) {
        const unsigned retention = i_read_u8();
        if (retention > I_SYMTAB::NEVER)
            bad_file("symbol " + name + " has retention " + std::to_string(retention));
        record.retention = static_cast<I_SYMTAB::RETENTION_POLICY>(retention);
    }
    record.level = level_;
    if (record.type == nullptr) bad_file("symbol " + name + " has no type");
    if (record.prag_num < 0) bad_file("symbol " + name + " has a negative count of pragmas");

    I_SYMTAB* symbol = client_->cl_symbol_create(record);
    symbol->retention = record.retention;
    if (level_ != 0)
        if_enter_local(symbol);
    else
        if_enter_global(symbol);
    for (int i = 0; i < record.prag_num; i++) {
        if (i_read_header().id != REC_PRAGMA) bad_file("symbol " + name + " has fewer pragmas than it says");
        if_read_pragma(symbol);
    }
    client_->cl_symbol_def(symbol);
    return symbol;
}

void I_FILE::if_read_pragma(I_SYMTAB* owner) {
    auto pragma = std::make_unique<PRAGMA>();
    pragma->kind = static_cast<std::uint8_t>(i_read_uint());
    const std::uint32_t count = i_read_uint();
    if (count > bytes_left()) bad_file("a pragma has more arguments than the file has bytes");
    for (std::uint32_t i = 0; i < count; i++) pragma->args.emplace_back(i_read_string());
    if (owner != nullptr) {
        if (pragma->kind == PRAG_SYM_IS_DEAD) owner->retention = I_SYMTAB::NEVER;
        if (pragma->kind == PRAG_SYM_IS_REFERENCED || pragma->kind == PRAG_FUNC_EXT_CALLED)
            owner->retention = I_SYMTAB::ALWAYS;
    }
    client_->cl_pragma(owner, pragma.release());
}

void I_FILE::if_write_symbol(const SYMBOL_RECORD& record) {
    i_write_string(record.name);
    i_write_uint(record.size);
    i_write_uint(record.value);
    i_write_i8(record.sclass);
    i_write_i16(static_cast<int>(record.cqual));
    i_write_typeref(record.type);
    i_write_typeref(record.cpp_type);
    i_write_uint(record.align);
    i_write_i8(record.prag_num);
    i_write_uint(record.location);
    i_write_uint(record.option_set);
    i_write_psn(record.psn);
    i_write_i8(record.retention);
    i_flush(REC_SYMBOL);
}

void I_FILE::if_write_symbol(I_SYMTAB* symbol) {
    SYMBOL_RECORD record;
    record.name = symbol->sym_name();
    record.size = symbol->sym_size();
    record.value = static_cast<unsigned>(symbol->sym_value());
    record.sclass = symbol->sym_class();
    record.cqual = symbol->sym_cqual();
    record.type = symbol->sym_type();
    record.cpp_type = symbol->sym_cpp_type();
    record.align = symbol->sym_align();
    record.prag_num = symbol->sym_prag_num();
    if (record.prag_num > 127)
        if_fatal(name_ + ": symbol " + record.name + " has more pragmas than a file can hold");
    record.location = symbol->sym_location();
    record.option_set = symbol->sym_option_set();
    record.psn = symbol->sym_psn();
    record.retention = symbol->retention;
    if_write_symbol(record);

    // The reader puts each pragma in front of the chain: the last of the chain goes first, so that a file
    // that is read and written again keeps its order.
    std::vector<const PRAGMA*> chain;
    for (const PRAGMA* p = symbol->sym_pragma(); p != nullptr; p = p->next) chain.push_back(p);
    for (auto p = chain.rbegin(); p != chain.rend(); ++p) if_write_pragma(*p);
}

void I_FILE::if_write_pragma(const PRAGMA* pragma) {
    i_write_uint(pragma->kind);
    i_write_uint(static_cast<std::uint32_t>(pragma->args.size()));
    for (const std::string& arg : pragma->args) i_write_string(arg.c_str());
    i_flush(REC_PRAGMA);
}

// --- Initialisers and exception tables.

void I_FILE::if_read_init() {
    if (level_ != 0) bad_file("an initialiser stands inside a function");
    I_SYMTAB* symbol = find_symbol(0, i_read_uint());
    INIT_TREES trees;
    do {
        trees.push_back(if_read_expr_node(true));
    } while (trees.back()->node_op() != op::ENDINIT);
    client_->cl_symbol_init(symbol, std::move(trees));
}

void I_FILE::if_write_init(I_SYMTAB* symbol) {
    if (sections_.inits == 0) {
        i_write_eof(); // ends the body
        sections_.inits = static_cast<std::uint32_t>(if_tell());
    }
    symbol->set_location(static_cast<unsigned>(if_tell()));
    i_write_uint(symbol->index);
    i_flush(REC_INIT);
}

void I_FILE::if_read_eht() {
    const auto invalid = [] { if_fatal("\nINTERNAL ERROR: Invalid EHT record in I-code, aborting\n"); };
    need_function("an exception table");
    const std::uint32_t count = i_read_uint();
    if (count > MAX_EHT_ENTRIES || count > bytes_left()) bad_file("an exception table has too many entries");
    std::vector<EHT_ENTRY> entries;
    for (std::uint32_t i = 0; i < count; i++) {
        if (i_read_header().id != REC_EHT_ENTRY) invalid();
        EHT_ENTRY entry;
        entry.first = i_read_uint();
        entry.kind = i_read_uint();
        entry.third = i_read_uint();
        entry.count = i_read_uint();
        if (entry.kind == EHK_EXPR) {
            PSN psn{};
            if (i_read_header().id != REC_EXPR) invalid();
            i_read_psn(psn);
            entry.tree = if_read_expr_node(true);
        } else if (entry.kind == EHK_CATCH) {
            if (i_read_header().id != REC_CATCH) invalid();
            if (entry.count > MAX_CATCH_ENTRIES || entry.count > bytes_left())
                bad_file("an exception table entry has too many catch entries");
            for (unsigned c = 0; c < entry.count; c++) {
                I_CATCH_ENTRY item;
                item.type_name = i_read_string();
                item.value = i_read_uint();
                item.flag = i_read_bool();
                entry.catches.push_back(std::move(item));
            }
        }
        entries.push_back(std::move(entry));
    }
    client_->cl_func_eht(std::move(entries));
}

void I_FILE::if_write_func_eht(const std::vector<EHT_ENTRY>& entries) {
    i_write_uint(static_cast<std::uint32_t>(entries.size()));
    i_flush(REC_EHT);
    for (const EHT_ENTRY& entry : entries) {
        i_write_uint(entry.first);
        i_write_uint(entry.kind);
        i_write_uint(entry.third);
        i_write_uint(entry.kind == EHK_CATCH ? static_cast<std::uint32_t>(entry.catches.size())
                                             : entry.count);
        i_flush(REC_EHT_ENTRY);
        if (entry.kind == EHK_EXPR) {
            if_write_expr(entry.tree, nullptr);
        } else if (entry.kind == EHK_CATCH) {
            for (const I_CATCH_ENTRY& item : entry.catches) {
                i_write_string(item.type_name.c_str());
                i_write_uint(item.value);
                i_write_bool(item.flag);
            }
            i_flush(REC_CATCH);
        }
    }
}

// --- Trees.

void I_FILE::invalid_record() { if_fatal("\nINTERNAL ERROR: Invalid I-code record, aborting\n"); }

BASE_NODE* I_FILE::read_node(int& subtrees) {
    const unsigned code = i_read_u8();
    if (code >= static_cast<unsigned>(FIRST_INTERNAL_OPCODE) || if_node_info[code].name == nullptr)
        invalid_record();
    TYPE* type = i_read_typeref();
    BASE_NODE* node = client_->cl_new_node(static_cast<int>(code), type);
    subtrees = if_node_info[code].operands;
    switch (code) {
        case op::LABEL: node->mk_label(i_read_uint()); break;
        case op::NAME: {
            const std::uint32_t level = i_read_uint();
            node->mk_name(find_symbol(level, i_read_uint()));
            break;
        }
        case op::SCON: {
            const std::uint32_t length = i_read_uint();
            node->mk_scon(i_read_string(length), length);
            break;
        }
        case op::ICON:
            node->mk_icon(is_signed_type(type) ? i_read_sint() : static_cast<int>(i_read_uint()));
            break;
        case op::FCON: node->mk_fcon(i_read_string()); break;
        case op::LCON: node->mk_lcon(i_read_string()); break;
        case op::FIELD: {
            const int kind = i_read_s8();
            const std::uint32_t number = i_read_uint();
            TYPE* csu = i_read_typeref();
            if (csu == nullptr) bad_file("a member of no type");
            node->mk_field(kind, find_mdataref(csu, number), csu);
            break;
        }
        case op::SWITCH: node->mk_case_count(static_cast<int>(i_read_uint())); break;
        case op::CALL: {
            const std::uint32_t id = i_read_uint();
            node->mk_call(id, i_read_uint());
            break;
        }
        case op::UCALL: node->mk_ucall(i_read_uint()); break;
        case op::EPVAL: node->set_edge_profile_value(i_read_uint()); break;
        case op::SKIP:
            node->mk_skip(static_cast<int>(i_read_uint()));
            subtrees = 0;
            break;
        case op::DDNODE: {
            const std::uint32_t id = i_read_uint(), flags = i_read_uint();
            node->mk_ddnode(static_cast<int>(id), static_cast<int>(flags), static_cast<int>(i_read_u8()));
            break;
        }
        case op::ICALL:
        case op::UICALL:
        case op::MCALL:
        case op::UMCALL: node->mk_icall(i_read_string()); break;
        case op::VREG: node->mk_vreg(i_read_sint()); break;
        default: break;
    }
    return node;
}

BASE_NODE* I_FILE::if_read_expr_node(bool with_header) {
    const std::size_t bottom = frames_.size();
    BASE_NODE* root = nullptr;
    do {
        if (with_header && i_read_header().id != REC_NODE) invalid_record();
        with_header = true;
        int subtrees = 0;
        BASE_NODE* node = read_node(subtrees);
        if (root == nullptr) root = node;
        if (frames_.size() > bottom) {
            TREE_FRAME& parent = frames_.back();
            if (parent.done++ == 0)
                parent.node->set_node_left(node);
            else
                parent.node->set_node_right(node);
        }
        frames_.push_back({node, subtrees, 0});
        while (frames_.size() > bottom && frames_.back().done == frames_.back().subtrees) {
            BASE_NODE* complete = frames_.back().node;
            if (frames_.back().subtrees == 2 &&
                (is_floating(complete->node_left()) || is_floating(complete->node_right()))) {
                const int code = floating_comparison(complete->node_op());
                if (code != complete->node_op()) complete->set_node_op(code);
            }
            frames_.pop_back();
        }
    } while (frames_.size() > bottom);
    return root;
}

void I_FILE::write_node(BASE_NODE* node) {
    const int code = node->node_op();
    if (code < 0 || code >= FIRST_INTERNAL_OPCODE || if_node_info[code].name == nullptr)
        if_fatal(name_ + ": operator " + std::to_string(code) + " cannot be written");
    TYPE* type = node->node_type();
    i_write_i8(code);
    i_write_typeref(type);
    switch (code) {
        case op::LABEL: i_write_uint(node->label_id()); break;
        case op::NAME: {
            I_SYMTAB* symbol = node->name_sym();
            if (symbol == nullptr) {
                i_write_uint(NULL_LEVEL);
                i_write_uint(0);
                break;
            }
            if (symbol->index == I_SYMTAB::NOT_ENTERED)
                if_fatal(std::string(">> Symbol ") + symbol->sym_name() + " is not in the symbol table\n");
            i_write_uint(static_cast<std::uint32_t>(symbol->sym_level()));
            i_write_uint(symbol->index);
            break;
        }
        case op::SCON:
            i_write_uint(node->scon_length());
            i_write_string(node->scon_value(), node->scon_length());
            break;
        case op::ICON:
            if (is_signed_type(type))
                i_write_sint(node->icon_svalue());
            else
                i_write_uint(node->icon_uvalue());
            break;
        case op::FCON: i_write_string(node->fcon_value()); break;
        case op::LCON: i_write_string(node->lcon_value()); break;
        case op::FIELD:
            i_write_i8(node->field_kind());
            i_write_uint(node->field_mval()->number);
            i_write_typeref(node->field_csu());
            break;
        case op::SWITCH: i_write_uint(static_cast<std::uint32_t>(node->case_count())); break;
        case op::CALL:
            i_write_uint(node->call_id());
            i_write_uint(node->eh_entry_id());
            break;
        case op::UCALL: i_write_uint(node->eh_entry_id()); break;
        case op::EPVAL: i_write_uint(node->get_edge_profile_value()); break;
        case op::SKIP: i_write_uint(static_cast<std::uint32_t>(node->skip_value())); break;
        case op::DDNODE:
            i_write_uint(static_cast<std::uint32_t>(node->ddnode_id()));
            i_write_uint(static_cast<std::uint32_t>(node->ddnode_flags()));
            i_write_i8(node->ddnode_kind());
            break;
        case op::ICALL:
        case op::UICALL:
        case op::MCALL:
        case op::UMCALL: i_write_string(node->icall_name()); break;
        case op::VREG: i_write_sint(node->vreg_id()); break;
        default: break;
    }
    i_flush(REC_NODE);
}

void I_FILE::if_write_expr_node(BASE_NODE* tree) {
    std::vector<BASE_NODE*> pending{tree};
    while (!pending.empty()) {
        BASE_NODE* node = pending.back();
        pending.pop_back();
        write_node(node);
        if (node->node_op() == op::SKIP) continue;
        if (node->node_right() != nullptr) pending.push_back(node->node_right());
        if (node->node_left() != nullptr) pending.push_back(node->node_left());
    }
}

void I_FILE::if_write_expr(BASE_NODE* tree, const PSN* psn) {
    i_write_psn(psn);
    i_flush(REC_EXPR);
    if_write_expr_node(tree);
}
