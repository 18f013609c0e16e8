// The type section: reading and writing of type records.
//
// The section is one forward pass. Heads of structures come first, so that members may refer to any
// structure; everything else refers only backwards. A function, an enumeration or a structure with lists is
// open from its head to the trailer of its last list, and complete from there on.

#include "if_file.h"
#include "types.h"

namespace {

// Record codes beyond the scalar ones.
enum TYPE_CODE : int {
    CODE_FLOAT = 10,
    CODE_DOUBLE = 11,
    CODE_LDOUBLE = 12,
    CODE_FXTPT = 13,
    CODE_TYPEDEF = 14,
    CODE_PTR = 15,
    CODE_REF = 16,
    CODE_QUAL = 17,
    CODE_ARRAY = 18,
    CODE_PTM = 19,
    CODE_FUNC = 20,
    CODE_PARAM = 21,
    CODE_ENUM = 22,
    CODE_ENUMERATOR = 23,
    CODE_CSU_SHORT = 24,
    CODE_CSU_LONG = 25,
    CODE_MEMBER = 28,
    CODE_BASE = 29,
    CODE_ACCESS = 30,
    CODE_FRIEND_FUNC = 31,
    CODE_FRIEND_CLASS = 32,
    CODE_NESTED = 33,
    CODE_STATIC_MEMBER = 34,
    CODE_MEMBER_FUNC = 35,
    CODE_COMPLEX = 36,
    CODE_OWN_ROUTINE = 48,
    CODE_VOID = 49,
    CODE_LLONG = 50,
    CODE_ULLONG = 51,
    CODE_LIST_HEADER = 254,
    CODE_LIST_TRAILER = 255
};

enum LIST_ID : int {
    LIST_PARAMS = 0,
    LIST_ENUMERATORS = 1,
    LIST_BASES = 2,
    LIST_ACCESS = 3,
    LIST_FRIEND_FUNCS = 4,
    LIST_FRIEND_CLASSES = 5,
    LIST_NESTED = 6,
    LIST_MEMBERS = 7,
    LIST_STATIC_MEMBERS = 8,
    LIST_MEMBER_FUNCS = 9,
    LIST_COUNT = 10
};

// The lists of a structure, in the order of the long record's flags.
constexpr int csu_flag_order[9] = {LIST_PARAMS,       LIST_BASES,          LIST_ACCESS,
                                   LIST_FRIEND_FUNCS, LIST_FRIEND_CLASSES, LIST_NESTED,
                                   LIST_MEMBERS,      LIST_STATIC_MEMBERS, LIST_MEMBER_FUNCS};

// The lists in the order in which they are written.
constexpr int csu_write_order[9] = {LIST_BASES,          LIST_ACCESS,       LIST_FRIEND_FUNCS,
                                    LIST_FRIEND_CLASSES, LIST_NESTED,       LIST_MEMBERS,
                                    LIST_STATIC_MEMBERS, LIST_MEMBER_FUNCS, LIST_PARAMS};

// Record code by ekind; kinds with a routine of their own have CODE_OWN_ROUTINE.
constexpr int code_of_ekind[27] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  50, 51, 10, 11,
                                   12, 48, 36, 48, 48, 48, 48, 48, 48, 48, 48, 48, 49};

// Structure codes of records 24 and 25.
enum CSU_CODE : int { CSU_STRUCT = 0, CSU_UNION = 1, CSU_CLASS = 2 };

} // namespace

// The reading and writing routines, with access to the file's primitives and tables.
struct I_FILE_TYPES {
    explicit I_FILE_TYPES(I_FILE& file) : f(file), tp(*file.tp_) {}

    I_FILE& f;
    TYPE_PKG& tp;

    // --- Reading.

    TYPE_LAYOUT read_layout() {
        TYPE_LAYOUT layout;
        layout.size = f.i_read_uint();
        layout.align = f.i_read_uint();
        return layout;
    }

    TYPE* read_part(const char* what) {
        TYPE* part = f.i_read_typeref();
        if (part == nullptr) f.bad_file(std::string("a ") + what + " of no type");
        return part;
    }

    TYPE* read_part(const char* what, bool (TYPE::*test)() const) {
        TYPE* part = read_part(what);
        if (!(part->*test)()) f.bad_file(std::string("a ") + what + " of an unfit type");
        return part;
    }

    void enter_type(unsigned number, TYPE* type, unsigned pending_lists = 0) {
        if (number == 0) f.bad_file("type number 0 stands for no type");
        TYPE_INFO info;
        info.type = type;
        info.pending_lists = pending_lists;
        if (!f.type_map_.emplace(number, info).second) tp_die("read type twice");
    }

    TYPE_INFO& owner(unsigned number) {
        const auto found = f.type_map_.find(number);
        if (found == f.type_map_.end()) tp_die("Unexpected type attribute");
        return found->second;
    }

    // The owner of an element record; the list of that id must be open.
    TYPE_INFO& owner_of_element(unsigned number, int list) {
        TYPE_INFO& info = owner(number);
        if (info.open_list != list) tp_die("Unexpected type attribute");
        return info;
    }

    bool read_is_cpp(const char* name) {
        if (f.version_ >= -81) return f.i_read_bool();
        bool is_cpp = false;
        tp.demangle_type_name(name, &is_cpp);
        return is_cpp;
    }

    void read_int(unsigned number, int code) {
        const bool explicit_sign = f.i_read_bool();
        const TYPE_LAYOUT layout = read_layout();
        const bool is_bool = f.i_read_bool();
        f.i_read_bool();
        const int kind = code == CODE_LLONG ? IK_LLONG : code == CODE_ULLONG ? IK_ULLONG : code;
        enter_type(number, tp.mk_int(static_cast<IKIND>(kind), explicit_sign, is_bool, layout));
    }

    void read_array(unsigned number) {
        TYPE* element = read_part("array");
        const unsigned count = f.i_read_uint();
        const TYPE_LAYOUT layout = read_layout();
        const bool is_cpp = f.i_read_bool();
        const bool is_complete = f.i_read_bool();
        const bool is_vector = f.version_ >= -76 && f.i_read_bool();
        if (f.version_ == -75 || f.version_ == -74) f.i_read_bool();
        enter_type(number, is_vector ? tp.mk_vector(element, count, is_cpp, layout)
                                     : tp.mk_array(element, count, is_complete, is_cpp, layout));
    }

    void read_csu(unsigned number, bool long_form) {
        const unsigned code = f.i_read_u8();
        const std::string name = f.i_read_string();
        const bool is_complete = f.i_read_bool();
        const bool is_lowered = f.i_read_bool();
        TYPE_LAYOUT layout = read_layout();
        unsigned count_word = 0, pending = 0;
        if (long_form) {
            count_word = f.i_read_uint();
            for (int list : csu_flag_order)
                if (f.i_read_bool()) pending |= 1u << list;
        } else if (f.i_read_bool()) {
            pending = 1u << LIST_MEMBERS;
        }
        const bool is_struct_vector = f.version_ >= -84 && f.i_read_bool();
        const bool is_cpp = read_is_cpp(name.c_str());
        PSN psn{};
        if (f.i_read_psn(psn)) layout.psn = &psn;
        TYPE* type = nullptr;
        switch (code) {
            case CSU_STRUCT: type = tp.mk_struct(name.c_str(), layout); break;
            case CSU_UNION: type = tp.mk_union(name.c_str(), layout); break;
            case CSU_CLASS: type = tp.mk_class(name.c_str(), layout); break;
            default: f.bad_file("structure code " + std::to_string(code));
        }
        CSU_BODY* body = tp.open_csu(type);
        body->is_complete = is_complete;
        body->is_lowered = is_lowered;
        body->is_struct_vector = is_struct_vector;
        body->is_cpp = is_cpp;
        body->count_word = count_word;
        if (pending == 0) tp.type_frozen(type);
        enter_type(number, type, pending);
    }

    void read_enum(unsigned number) {
        const std::string name = f.i_read_string();
        TYPE_LAYOUT layout = read_layout();
        TYPE* underlying = read_part("enumeration", &TYPE::is_integer);
        unsigned language = 0;
        if (f.version_ >= -81)
            language = f.i_read_u8();
        else
            language = read_is_cpp(name.c_str()) ? 1 : 0;
        PSN psn{};
        if (f.i_read_psn(psn)) layout.psn = &psn;
        enter_type(number, tp.mk_enum(name.c_str(), underlying, static_cast<std::uint8_t>(language), layout),
                   1u << LIST_ENUMERATORS);
    }

    void read_func(unsigned number) {
        TYPE* result = read_part("function");
        const bool vararg = f.i_read_bool();
        const bool proto = f.i_read_bool();
        const auto cc_kind = static_cast<std::uint8_t>(f.i_read_u8());
        const bool is_cpp = f.i_read_bool();
        enter_type(number, tp.begin_func(result, vararg, proto, cc_kind, is_cpp), 1u << LIST_PARAMS);
    }

    void read_typedef(unsigned number) {
        const std::string name = f.i_read_string();
        TYPE* target = read_part("typedef");
        TYPE_LAYOUT layout = read_layout();
        const bool is_cpp = f.i_read_bool();
        const bool lowered = f.i_read_bool();
        PSN psn{};
        if (f.i_read_psn(psn)) layout.psn = &psn;
        enter_type(number, tp.mk_typedef(name.c_str(), target, is_cpp, lowered, layout));
    }

    void make_list(unsigned number, int list) {
        TYPE_INFO& info = owner(number);
        if (list < 0 || list >= LIST_COUNT) f.bad_file("type list " + std::to_string(list));
        const TYPE* type = info.type;
        if ((info.pending_lists & (1u << list)) == 0) {
            if (type->kind() == TYPE::FUNC_KIND && list == LIST_PARAMS)
                tp_die("Duplicate function parameters");
            if (type->kind() == TYPE::ENUM_KIND && list == LIST_ENUMERATORS)
                tp_die("Duplicate enumerator attributes");
            if (type->kind() >= TYPE::CLASS_KIND && list != LIST_ENUMERATORS)
                tp_die("Duplicate CSU attributes");
            tp_die("Unexpected type attribute");
        }
        if (info.open_list >= 0) tp_die("Unexpected type attribute");
        info.open_list = list;
    }

    void end_list(unsigned number, int list) {
        TYPE_INFO& info = owner(number);
        if (list < 0 || info.open_list != list) tp_die("Unexpected type attribute");
        info.open_list = -1;
        info.pending_lists &= ~(1u << list);
        if (info.pending_lists != 0) return;
        tp.type_frozen(info.type);
    }

    void read_param(unsigned number) {
        TYPE_INFO& info = owner_of_element(number, LIST_PARAMS);
        fkPARAM param;
        param.type = read_part("parameter");
        f.i_read_bool();
        param.attributes = f.i_read_uint();
        param.name = intern_text(f.i_read_string());
        if (FUNC_BODY* body = tp.open_func(info.type))
            body->params.push_back(param);
        else
            tp.open_csu(info.type)->params.push_back(param);
    }

    void read_enumerator(unsigned number) {
        ENUM_BODY* body = tp.open_enum(owner_of_element(number, LIST_ENUMERATORS).type);
        fkENUMERATOR item;
        item.name = intern_text(f.i_read_string());
        item.value = body->underlying_type->is_signed() ? static_cast<std::int64_t>(f.i_read_sint())
                                                        : static_cast<std::int64_t>(f.i_read_uint());
        item.has_psn = f.i_read_psn(item.psn);
        body->enumerators.push_back(item);
    }

    void read_member(unsigned number) {
        TYPE_INFO& info = owner_of_element(number, LIST_MEMBERS);
        fkMDATA member;
        const unsigned place = f.i_read_uint();
        member.name = intern_text(f.i_read_string());
        member.type = read_part("member");
        member.attribute = static_cast<std::uint8_t>(f.i_read_u8());
        member.offset = f.i_read_sint();
        if (f.version_ >= -74) member.field_attribute = static_cast<std::uint8_t>(f.i_read_u8());
        if (member.field_attribute != 0) {
            char text[16];
            std::snprintf(text, sizeof text, "fti:%x", member.field_attribute);
            member.fti = intern_text(text);
        }
        if (f.version_ >= -85) {
            member.width = f.i_read_uint();
            member.bit_field = f.i_read_bool();
            member.flag2 = f.i_read_bool();
            member.flag3 = f.i_read_bool();
        } else {
            member.bit_field = f.i_read_bool();
            member.width = f.i_read_uint();
            member.flag2 = f.i_read_bool();
        }
        member.has_psn = f.i_read_psn(member.psn);
        const fkMDATA* made = tp.add_member(info.type, member);
        if (made->number != place) f.bad_file("member " + std::to_string(place) + " stands out of order");
    }

    void read_element(unsigned number, int code) {
        switch (code) {
            case CODE_BASE: {
                CSU_BODY* body = tp.open_csu(owner_of_element(number, LIST_BASES).type);
                fkBCLASS base;
                base.type = read_part("base class");
                base.offset = f.i_read_sint();
                base.attribute = static_cast<std::uint8_t>(f.i_read_u8());
                base.is_virtual = f.i_read_bool();
                body->bases.push_back(base);
                break;
            }
            case CODE_ACCESS: {
                CSU_BODY* body = tp.open_csu(owner_of_element(number, LIST_ACCESS).type);
                f.i_read_uint();
                body->accesses.push_back({static_cast<std::uint8_t>(f.i_read_u8())});
                break;
            }
            case CODE_FRIEND_FUNC: {
                CSU_BODY* body = tp.open_csu(owner_of_element(number, LIST_FRIEND_FUNCS).type);
                fkFFRIEND item;
                item.name = intern_text(f.i_read_string());
                item.type = read_part("friend function");
                body->friend_functions.push_back(item);
                break;
            }
            case CODE_FRIEND_CLASS: {
                CSU_BODY* body = tp.open_csu(owner_of_element(number, LIST_FRIEND_CLASSES).type);
                body->friend_classes.push_back(read_part("friend class"));
                break;
            }
            case CODE_NESTED: {
                CSU_BODY* body = tp.open_csu(owner_of_element(number, LIST_NESTED).type);
                body->nested_types.push_back(read_part("nested type"));
                break;
            }
            case CODE_STATIC_MEMBER: {
                CSU_BODY* body = tp.open_csu(owner_of_element(number, LIST_STATIC_MEMBERS).type);
                fkSDATA item;
                item.name = intern_text(f.i_read_string());
                item.type = read_part("static member");
                item.attribute = static_cast<std::uint8_t>(f.i_read_u8());
                body->static_members.push_back(item);
                break;
            }
            default: { // CODE_MEMBER_FUNC
                CSU_BODY* body = tp.open_csu(owner_of_element(number, LIST_MEMBER_FUNCS).type);
                fkMFUNC item;
                item.name = intern_text(f.i_read_string());
                item.type = read_part("member function");
                item.attribute = static_cast<std::uint8_t>(f.i_read_u8());
                item.position = f.i_read_sint();
                for (bool& flag : item.flags) flag = f.i_read_bool();
                body->member_functions.push_back(item);
                break;
            }
        }
    }

    void read() {
        const unsigned number = f.i_read_uint();
        const int code = static_cast<int>(f.i_read_u8());
        tp.set_wanted_uid(number); // so that what is read and written again keeps its numbers
        read_payload(number, code);
        tp.set_wanted_uid(0);
    }

    void read_payload(unsigned number, int code) {
        if (code < CODE_FLOAT || code == CODE_LLONG || code == CODE_ULLONG) {
            read_int(number, code);
            return;
        }
        switch (code) {
            case CODE_FLOAT:
            case CODE_DOUBLE:
            case CODE_LDOUBLE:
                enter_type(number, tp.mk_fltpt(static_cast<FKIND>(code - CODE_FLOAT), read_layout()));
                break;
            case CODE_FXTPT: {
                const int point = f.i_read_s8();
                const bool explicit_sign = f.i_read_bool();
                TYPE* underlying = read_part("fixed point type", &TYPE::is_integer);
                enter_type(number, tp.mk_fxtpt(underlying, point, explicit_sign, read_layout()));
                break;
            }
            case CODE_TYPEDEF: read_typedef(number); break;
            case CODE_PTR: {
                TYPE* target = read_part("pointer");
                enter_type(number, tp.mk_ptr(target, read_layout()));
                break;
            }
            case CODE_REF: {
                TYPE* target = read_part("reference");
                enter_type(number, tp.mk_ref(target, read_layout()));
                break;
            }
            case CODE_QUAL: {
                TYPE* target = read_part("qualified type");
                const auto bits = static_cast<unsigned char>(f.i_read_uint());
                enter_type(number, tp.mk_qual(target, bits, read_layout()));
                break;
            }
            case CODE_ARRAY: read_array(number); break;
            case CODE_PTM: {
                TYPE* member = read_part("pointer to member");
                TYPE* csu = read_part("pointer to member", &TYPE::is_csu);
                enter_type(number, tp.mk_ptm(member, csu, read_layout()));
                break;
            }
            case CODE_FUNC: read_func(number); break;
            case CODE_PARAM: read_param(number); break;
            case CODE_ENUM: read_enum(number); break;
            case CODE_ENUMERATOR: read_enumerator(number); break;
            case CODE_CSU_SHORT:
            case CODE_CSU_LONG: read_csu(number, code == CODE_CSU_LONG); break;
            case CODE_MEMBER: read_member(number); break;
            case CODE_BASE:
            case CODE_ACCESS:
            case CODE_FRIEND_FUNC:
            case CODE_FRIEND_CLASS:
            case CODE_NESTED:
            case CODE_STATIC_MEMBER:
            case CODE_MEMBER_FUNC: read_element(number, code); break;
            case CODE_COMPLEX: {
                const TYPE_LAYOUT layout = read_layout();
                TYPE* part = read_part("complex type");
                if (!part->is_integer() && !part->is_fltpt()) f.bad_file("a complex type of an unfit type");
                enter_type(number, tp.mk_complex(part, layout));
                break;
            }
            case CODE_VOID: enter_type(number, tp.mk_void()); break;
            case CODE_LIST_HEADER: make_list(number, f.i_read_s8()); break;
            case CODE_LIST_TRAILER: end_list(number, f.i_read_s8()); break;
            default: f.bad_file("type record of code " + std::to_string(code));
        }
    }

    // No type may hold itself by value: whoever walks through members would not come to an end.
    void need_finite_types() {
        enum STATE : unsigned char { NEW, OPEN, DONE };
        const std::vector<TYPE*>& all = tp.all_types();
        std::vector<STATE> states(all.size(), NEW);
        std::vector<TYPE*> stack;
        const auto push = [&](TYPE* held) {
            held = held->true_type();
            if (held->kind() < TYPE::CLASS_KIND && held->kind() != TYPE::ARRAY_KIND) return;
            if (states[held->uid()] == OPEN)
                f.bad_file("type " + std::to_string(held->uid()) + " holds itself");
            if (states[held->uid()] == NEW) stack.push_back(held);
        };
        for (TYPE* type : all) {
            if (type == nullptr) continue;
            push(type);
            while (!stack.empty()) {
                TYPE* top = stack.back();
                STATE& state = states[top->uid()];
                if (state != NEW) {
                    state = DONE;
                    stack.pop_back();
                    continue;
                }
                state = OPEN;
                if (top->is_array()) {
                    push(top->elem_type());
                    continue;
                }
                for (const fkMDATA* member : top->csu().members) push(member->type);
                for (const fkBCLASS& base : top->csu().bases) push(base.type);
            }
        }
    }

    // --- Writing. `written_` is by number.

    std::vector<bool> written_;

    bool is_written(TYPE* type) const { return type == nullptr || written_[type->equiv_end()->uid()]; }

    void write_start(const TYPE* type, int code) {
        f.i_write_uint(type->uid());
        f.i_write_i8(code);
    }

    void write_layout(const TYPE* type) {
        f.i_write_uint(static_cast<std::uint32_t>(type->size()));
        f.i_write_uint(type->align());
    }

    void end_record() { f.i_flush(REC_TYPE); }

    void write_list_mark(const TYPE* type, int code, int list) {
        write_start(type, code);
        f.i_write_i8(list);
        end_record();
    }

    template <class ELEMENTS, class WRITE>
    void write_list(const TYPE* type, int list, int code, const ELEMENTS& elements, WRITE write) {
        write_list_mark(type, CODE_LIST_HEADER, list);
        for (const auto& element : elements) {
            write_start(type, code);
            write(element);
            end_record();
        }
        write_list_mark(type, CODE_LIST_TRAILER, list);
    }

    void write_params(const TYPE* type, const std::vector<fkPARAM>& params) {
        write_list(type, LIST_PARAMS, CODE_PARAM, params, [this](const fkPARAM& param) {
            f.i_write_typeref(param.type);
            f.i_write_bool(false);
            f.i_write_uint(param.attributes);
            f.i_write_string(param.name);
        });
    }

    // The record of one type, whose parts stand in the file already.
    void write_record(TYPE* type) {
        switch (type->kind()) {
            case TYPE::INT_KIND:
                write_start(type, code_of_ekind[type->ekind()]);
                f.i_write_bool(type->is_explicit_sign());
                write_layout(type);
                f.i_write_bool(type->is_marked_bool());
                f.i_write_bool(type->is_explicit_sign());
                break;
            case TYPE::VOID_KIND: write_start(type, CODE_VOID); break;
            case TYPE::FLTPT_KIND:
                write_start(type, code_of_ekind[type->ekind()]);
                write_layout(type);
                break;
            case TYPE::FXTPT_KIND:
                write_start(type, CODE_FXTPT);
                f.i_write_i8(type->binary_point());
                f.i_write_bool(type->is_explicit_sign());
                f.i_write_typeref(type->underlying_type());
                write_layout(type);
                break;
            case TYPE::COMPLEX_KIND:
                write_start(type, CODE_COMPLEX);
                write_layout(type);
                f.i_write_typeref(type->part_type());
                break;
            case TYPE::TYPEDEF_KIND:
                write_start(type, CODE_TYPEDEF);
                f.i_write_string(type->name());
                f.i_write_typeref(type->type_named());
                write_layout(type);
                f.i_write_bool(type->is_cpp_typedef());
                f.i_write_bool(type->is_lowered());
                f.i_write_psn(type->psn());
                break;
            case TYPE::PTR_KIND:
            case TYPE::REF_KIND:
                write_start(type, type->kind() == TYPE::PTR_KIND ? CODE_PTR : CODE_REF);
                f.i_write_typeref(type->type_pointed_to());
                write_layout(type);
                break;
            case TYPE::QUAL_KIND:
                write_start(type, CODE_QUAL);
                f.i_write_typeref(type->type_qualified());
                f.i_write_uint(type->own_qual());
                write_layout(type);
                break;
            case TYPE::ARRAY_KIND: {
                const ARRAY_BODY& body = type->array();
                write_start(type, CODE_ARRAY);
                f.i_write_typeref(body.elem_type);
                f.i_write_uint(body.count);
                write_layout(type);
                f.i_write_bool(body.is_cpp);
                f.i_write_bool(body.is_complete);
                f.i_write_bool(body.is_vector);
                break;
            }
            case TYPE::PTM_KIND:
                write_start(type, CODE_PTM);
                f.i_write_typeref(type->type_pointed_to());
                f.i_write_typeref(type->ptm_class());
                write_layout(type);
                break;
            case TYPE::FUNC_KIND: {
                const FUNC_BODY& body = type->func();
                write_start(type, CODE_FUNC);
                f.i_write_typeref(body.return_type);
                f.i_write_bool(body.vararg);
                f.i_write_bool(body.proto);
                f.i_write_i8(body.cc_kind);
                f.i_write_bool(body.is_cpp);
                end_record();
                write_params(type, body.params);
                return;
            }
            case TYPE::ENUM_KIND: {
                const ENUM_BODY& body = type->enumeration();
                write_start(type, CODE_ENUM);
                f.i_write_string(type->name());
                write_layout(type);
                f.i_write_typeref(body.underlying_type);
                f.i_write_i8(body.language);
                f.i_write_psn(type->psn());
                end_record();
                write_list(type, LIST_ENUMERATORS, CODE_ENUMERATOR, body.enumerators,
                           [&](const fkENUMERATOR& item) {
                               f.i_write_string(item.name);
                               if (body.underlying_type->is_signed())
                                   f.i_write_sint(static_cast<std::int32_t>(item.value));
                               else
                                   f.i_write_uint(static_cast<std::uint32_t>(item.value));
                               f.i_write_psn(item.has_psn ? &item.psn : nullptr);
                           });
                return;
            }
            default: write_csu(type); break;
        }
        end_record();
    }

    static std::size_t list_length(const CSU_BODY& body, int list) {
        switch (list) {
            case LIST_PARAMS: return body.params.size();
            case LIST_BASES: return body.bases.size();
            case LIST_ACCESS: return body.accesses.size();
            case LIST_FRIEND_FUNCS: return body.friend_functions.size();
            case LIST_FRIEND_CLASSES: return body.friend_classes.size();
            case LIST_NESTED: return body.nested_types.size();
            case LIST_MEMBERS: return body.members.size();
            case LIST_STATIC_MEMBERS: return body.static_members.size();
            default: return body.member_functions.size();
        }
    }

    void write_csu(TYPE* type) {
        const CSU_BODY& body = type->csu();
        bool short_form = body.count_word == 0;
        for (int list : csu_flag_order)
            if (list != LIST_MEMBERS && list_length(body, list) != 0) short_form = false;
        write_start(type, short_form ? CODE_CSU_SHORT : CODE_CSU_LONG);
        f.i_write_i8(type->kind() == TYPE::CLASS_KIND   ? CSU_CLASS
                     : type->kind() == TYPE::UNION_KIND ? CSU_UNION
                                                        : CSU_STRUCT);
        f.i_write_string(type->name());
        f.i_write_bool(body.is_complete);
        f.i_write_bool(body.is_lowered);
        write_layout(type);
        if (short_form) {
            f.i_write_bool(!body.members.empty());
        } else {
            f.i_write_uint(body.count_word);
            for (int list : csu_flag_order) f.i_write_bool(list_length(body, list) != 0);
        }
        f.i_write_bool(body.is_struct_vector);
        f.i_write_bool(body.is_cpp);
        f.i_write_psn(type->psn());
    }

    void write_csu_list(TYPE* type, int list) {
        const CSU_BODY& body = type->csu();
        switch (list) {
            case LIST_PARAMS: write_params(type, body.params); break;
            case LIST_BASES:
                write_list(type, list, CODE_BASE, body.bases, [this](const fkBCLASS& base) {
                    f.i_write_typeref(base.type);
                    f.i_write_sint(static_cast<std::int32_t>(base.offset));
                    f.i_write_i8(base.attribute);
                    f.i_write_bool(base.is_virtual);
                });
                break;
            case LIST_ACCESS:
                write_list(type, list, CODE_ACCESS, body.accesses, [this](const fkACCESS& access) {
                    f.i_write_uint(0);
                    f.i_write_i8(access.kind);
                });
                break;
            case LIST_FRIEND_FUNCS:
                write_list(type, list, CODE_FRIEND_FUNC, body.friend_functions,
                           [this](const fkFFRIEND& item) {
                               f.i_write_string(item.name);
                               f.i_write_typeref(item.type);
                           });
                break;
            case LIST_FRIEND_CLASSES:
                write_list(type, list, CODE_FRIEND_CLASS, body.friend_classes,
                           [this](TYPE* item) { f.i_write_typeref(item); });
                break;
            case LIST_NESTED:
                write_list(type, list, CODE_NESTED, body.nested_types,
                           [this](TYPE* item) { f.i_write_typeref(item); });
                break;
            case LIST_MEMBERS:
                write_list(type, list, CODE_MEMBER, body.members, [this](const fkMDATA* member) {
                    f.i_write_uint(member->number);
                    f.i_write_string(member->name);
                    f.i_write_typeref(member->type);
                    f.i_write_i8(member->attribute);
                    f.i_write_sint(static_cast<std::int32_t>(member->offset));
                    f.i_write_i8(member->field_attribute);
                    f.i_write_uint(member->width);
                    f.i_write_bool(member->bit_field);
                    f.i_write_bool(member->flag2);
                    f.i_write_bool(member->flag3);
                    f.i_write_psn(member->has_psn ? &member->psn : nullptr);
                });
                break;
            case LIST_STATIC_MEMBERS:
                write_list(type, list, CODE_STATIC_MEMBER, body.static_members, [this](const fkSDATA& item) {
                    f.i_write_string(item.name);
                    f.i_write_typeref(item.type);
                    f.i_write_i8(item.attribute);
                });
                break;
            default:
                write_list(type, list, CODE_MEMBER_FUNC, body.member_functions, [this](const fkMFUNC& item) {
                    f.i_write_string(item.name);
                    f.i_write_typeref(item.type);
                    f.i_write_i8(item.attribute);
                    f.i_write_sint(static_cast<std::int32_t>(item.position));
                    for (bool flag : item.flags) f.i_write_bool(flag);
                });
                break;
        }
    }

    // The type and everything that it is built from, each once and behind its parts. The heads of all
    // structures stand already, so the walk stops at them and meets no cycle.
    void write_type(TYPE* type) {
        if (type == nullptr) return;
        struct FRAME {
            TYPE* type;
            bool expanded;
        };
        std::vector<FRAME> stack{{type->equiv_end(), false}};
        std::vector<TYPE*> parts;
        while (!stack.empty()) {
            FRAME& top = stack.back();
            TYPE* t = top.type;
            if (written_[t->uid()]) {
                stack.pop_back();
                continue;
            }
            if (!top.expanded) {
                top.expanded = true;
                parts.clear();
                parts_of(t, parts);
                for (auto part = parts.rbegin(); part != parts.rend(); ++part)
                    if (!is_written(*part)) stack.push_back({(*part)->equiv_end(), false});
                continue;
            }
            stack.pop_back();
            written_[t->uid()] = true;
            write_record(t);
        }
    }

    static void parts_of(TYPE* type, std::vector<TYPE*>& parts) {
        if (type->kind() < TYPE::CLASS_KIND) type->append_parts(parts);
    }

    void write_all() {
        const std::vector<TYPE*>& all = tp.all_types();
        written_.assign(all.size(), false);
        std::vector<TYPE*> structures;
        for (TYPE* type : all)
            if (type != nullptr && type->kind() >= TYPE::CLASS_KIND && type->equiv_end() == type &&
                type->is_referenced())
                structures.push_back(type);
        for (TYPE* type : structures) {
            written_[type->uid()] = true;
            write_record(type);
        }
        std::vector<TYPE*> parts;
        for (TYPE* type : structures) {
            parts.clear();
            type->append_parts(parts);
            for (TYPE* part : parts) write_type(part);
            for (int list : csu_write_order)
                if (list_length(type->csu(), list) != 0) write_csu_list(type, list);
        }
        for (TYPE* type : all)
            if (type != nullptr && type->equiv_end() == type && type->is_referenced()) write_type(type);
    }
};

// --- I_FILE's side.

TYPE* I_FILE::look_up_type(unsigned number) {
    if (number == 0) return nullptr;
    const auto found = type_map_.find(number);
    if (found == type_map_.end()) tp_die("invalid forward reference");
    // Only a structure has its identity from its head on. A function or an enumeration gets it when it is
    // complete: a function may turn out to be one that stands already.
    const TYPE_INFO& info = found->second;
    if (info.pending_lists != 0 && !info.type->is_csu()) tp_die("invalid forward reference");
    if (info.pending_lists == 0) known_types_[number % KNOWN_TYPES] = {number, info.type};
    return info.type;
}

fkMDATA* I_FILE::find_mdataref(TYPE* csu, unsigned number) {
    fkMDATA* member = csu->is_csu() ? csu->true_type()->member(number) : nullptr;
    if (member == nullptr) bad_file("a structure has no member " + std::to_string(number));
    return member;
}

void I_FILE::if_read_type() {
    if (tp_ == nullptr) bad_file("a type record where no type is expected");
    I_FILE_TYPES(*this).read();
}

void I_FILE::if_read_type_defs() {
    if (sections_.types == 0) return;
    const long position = if_tell();
    begin_section(sections_.types, "type");
    for (;;) {
        const RECORD_HEADER header = i_read_header();
        if (header.id == REC_EOF) break;
        if (header.id != REC_TYPE) bad_file("record " + std::to_string(header.id) + " among the types");
        if_read_type();
    }
    need_complete_types();
    if_seek(position);
}

void I_FILE::need_complete_types() {
    for (const auto& [number, info] : type_map_)
        if (info.pending_lists != 0) bad_file("a type is not complete at the end of its section");
    if (tp_ != nullptr) I_FILE_TYPES(*this).need_finite_types();
}

void I_FILE::if_mark_global_types() {
    for (const I_SYMTAB* symbol : globals_)
        for (TYPE* type : {symbol->sym_type(), symbol->sym_cpp_type()})
            if (type != nullptr) type->equiv_end()->set_referenced();
}

void I_FILE::if_write_all_types() {
    const long start = if_tell();
    if_mark_global_types();
    tp_->root_type()->mark_named_types(false);
    tp_->root_type()->mark_refed_types();
    I_FILE_TYPES(*this).write_all();
    if (if_tell() == start) return;
    sections_.types = static_cast<std::uint32_t>(start);
    i_write_eof();
}
