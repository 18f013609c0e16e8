// TYPE: readers, tests, conversions to text, and the marks of the writer.
//
// A type can be built from a hundred thousand others in a chain, so nothing here recurses along parts:
// closures keep a work list, and texts look only a few levels deep.

#include "types.h"

#include <algorithm>
#include <cstdlib>

void (*tp_die_hook)(const char* text) = nullptr;

void tp_die(const char* text) {
    if (tp_die_hook != nullptr) tp_die_hook(text);
    std::fprintf(stderr, "TP>> internal error: %s\n", text);
    std::exit(1);
}

const char* error_code_name(TP_ERROR_CODE code) {
    switch (code) {
        case TP_NO_ERROR: return "no error";
        case TP_SIZE_NOT_SUPPORTED: return "object size not supported";
        default: return "unknown error";
    }
}

void* TYPE::operator new(std::size_t size) { return TYPE_PKG::tp_alloc(size); }
void TYPE::operator delete(void* block, std::size_t size) { TYPE_PKG::tp_free(block, size); }

TYPE::~TYPE() {
    if (csu_ != nullptr)
        for (fkMDATA* member : csu_->members) delete member;
    delete func_;
    delete array_;
    delete enum_;
    delete csu_;
}

void TYPE::bad_kind(const char* reader) { tp_die((std::string("Bad kind:  TYPE::") + reader).c_str()); }

// --- Names and chains.

const char* TYPE::name() const {
    if (kind_ != TYPEDEF_KIND && kind_ < ENUM_KIND) bad_kind("name()");
    return name_;
}

bool TYPE::has_name() const { return name_[0] != '\0'; }

void TYPE::set_equiv(TYPE* representative) {
    TYPE* end = representative->equiv_end();
    if (end != this) equiv_ = end;
}

TYPE* TYPE::equiv_end() {
    TYPE* end = this;
    while (end->equiv_ != nullptr) end = end->equiv_;
    // Halves the chain for the next caller.
    for (TYPE* t = this; t->equiv_ != nullptr && t->equiv_ != end;) {
        TYPE* next = t->equiv_;
        t->equiv_ = end;
        t = next;
    }
    return end;
}

// --- Tests.

bool TYPE::is_ikind(IKIND kind) const { return true_kind() == INT_KIND && true_type_->subkind_ == kind; }
bool TYPE::is_fkind(FKIND kind) const { return true_kind() == FLTPT_KIND && true_type_->subkind_ == kind; }
bool TYPE::is_explicit_sign() const { return true_type_->explicit_sign_; }
bool TYPE::is_schar() const { return is_ikind(IK_CHAR) && true_type_->explicit_sign_; }
bool TYPE::is_plain_char() const { return is_ikind(IK_CHAR) && !true_type_->explicit_sign_; }

bool TYPE::is_cchar() const { return is_complex() && true_type_->target_->is_ikind(IK_CHAR); }
bool TYPE::is_cshort() const { return is_complex() && true_type_->target_->is_ikind(IK_SHORT); }
bool TYPE::is_cint() const { return is_complex() && true_type_->target_->is_ikind(IK_INT); }
bool TYPE::is_clong() const { return is_complex() && true_type_->target_->is_ikind(IK_LONG); }
bool TYPE::is_cllong() const { return is_complex() && true_type_->target_->is_ikind(IK_LLONG); }
bool TYPE::is_cfloat() const { return is_complex() && true_type_->target_->is_fkind(FK_FLOAT); }
bool TYPE::is_cdouble() const { return is_complex() && true_type_->target_->is_fkind(FK_DOUBLE); }

bool TYPE::is_arithmetic() const {
    switch (true_kind()) {
        case INT_KIND:
        case FLTPT_KIND:
        case FXTPT_KIND:
        case COMPLEX_KIND:
        case ENUM_KIND: return true;
        default: return false;
    }
}

bool TYPE::is_scalar() const { return is_arithmetic() || is_ptr() || is_ref() || is_ptm(); }
bool TYPE::is_udt() const { return is_csu() || is_enum(); }
bool TYPE::is_vector() const { return is_array() && true_type_->array_->is_vector; }
bool TYPE::is_vpred() const { return is_vector() && true_type_->array_->elem_type->is_bool(); }

bool TYPE::is_complete() const {
    switch (true_kind()) {
        case VOID_KIND: return false;
        case ARRAY_KIND: return true_type_->array_->is_complete;
        case CLASS_KIND:
        case STRUCT_KIND:
        case UNION_KIND: return true_type_->csu_->is_complete;
        default: return true;
    }
}

bool TYPE::is_lowered() const {
    if (kind_ == TYPEDEF_KIND) return lowered_;
    return is_csu() && true_type_->csu_->is_lowered;
}

bool TYPE::is_signed() const {
    switch (true_kind()) {
        case INT_KIND:
            switch (true_type_->subkind_) {
                case IK_CHAR:
                case IK_SHORT:
                case IK_INT:
                case IK_LONG:
                case IK_LLONG: return true;
                default: return false;
            }
        case FLTPT_KIND: return true;
        case FXTPT_KIND: return true_type_->target_ == nullptr || true_type_->target_->is_signed();
        case COMPLEX_KIND: return true_type_->target_->is_signed();
        case ENUM_KIND: return true_type_->enum_->underlying_type->is_signed();
        default: return false;
    }
}

IKIND TYPE::ikind() const {
    if (true_kind() != INT_KIND) bad_kind("ikind()");
    return static_cast<IKIND>(true_type_->subkind_);
}

FKIND TYPE::fkind() const {
    if (true_kind() != FLTPT_KIND) bad_kind("fkind()");
    return static_cast<FKIND>(true_type_->subkind_);
}

int TYPE::rank() const {
    switch (ikind()) {
        case IK_BOOL: return 0;
        case IK_CHAR:
        case IK_UCHAR: return 1;
        case IK_WCHAR:
        case IK_SHORT:
        case IK_USHORT: return 2;
        case IK_INT:
        case IK_UINT: return 3;
        case IK_LONG:
        case IK_ULONG: return 4;
        default: return 5;
    }
}

int TYPE::ekind() const {
    switch (true_kind()) {
        case VOID_KIND: return EK_VOID;
        case INT_KIND: return true_type_->subkind_;
        case FLTPT_KIND: return EK_FLOAT + true_type_->subkind_;
        case FXTPT_KIND: return EK_FXTPT;
        case COMPLEX_KIND: return EK_COMPLEX;
        case PTR_KIND: return EK_PTR;
        case REF_KIND: return EK_REF;
        case ARRAY_KIND: return EK_ARRAY;
        case PTM_KIND: return EK_PTM;
        case FUNC_KIND: return EK_FUNC;
        case ENUM_KIND: return EK_ENUM;
        case CLASS_KIND: return EK_CLASS;
        case STRUCT_KIND: return EK_STRUCT;
        case UNION_KIND: return EK_UNION;
        default: tp_die("unhandled type kind: TYPE::ekind()");
    }
}

// --- Parts.

TYPE* TYPE::getd(KIND kind) { return true_kind() == kind ? true_type_ : nullptr; }

TYPE* TYPE::getr(KIND kind) {
    if (true_kind() != kind) bad_kind("getr()");
    return true_type_;
}

TYPE* TYPE::get_csu() { return is_csu() ? true_type_ : nullptr; }

TYPE* TYPE::getr_csu() {
    if (!is_csu()) bad_kind("getr_csu()");
    return true_type_;
}

TYPE* TYPE::elem_type() {
    if (!is_array()) bad_kind("elem_type()");
    return true_type_->array_->elem_type;
}

TYPE* TYPE::part_type() {
    if (!is_complex()) bad_kind("part_type()");
    return true_type_->target_;
}

TYPE* TYPE::type_pointed_to() {
    if (!is_ptr() && !is_ref() && !is_ptm()) bad_kind("type_pointed_to()");
    return true_type_->target_;
}

TYPE* TYPE::ptm_class() {
    if (!is_ptm()) bad_kind("ptm_class()");
    return true_type_->class_;
}

TYPE* TYPE::underlying_type() {
    if (is_enum()) return true_type_->enum_->underlying_type;
    if (true_kind() != FXTPT_KIND) bad_kind("underlying_type()");
    return true_type_->target_;
}

TYPE* TYPE::type_qualified() { return kind_ == QUAL_KIND ? target_ : this; }

TYPE* TYPE::type_named() {
    if (kind_ != TYPEDEF_KIND) bad_kind("type_named()");
    return target_;
}

TYPE* TYPE::return_type() { return func().return_type; }

int TYPE::binary_point() {
    if (true_kind() != FXTPT_KIND) bad_kind("binary_point()");
    return true_type_->subkind_;
}

const FUNC_BODY& TYPE::func() const {
    if (!is_func()) bad_kind("func()");
    return *true_type_->func_;
}

const ARRAY_BODY& TYPE::array() const {
    if (!is_array()) bad_kind("array()");
    return *true_type_->array_;
}

const ENUM_BODY& TYPE::enumeration() const {
    if (!is_enum()) bad_kind("enumeration()");
    return *true_type_->enum_;
}

const CSU_BODY& TYPE::csu() const {
    if (!is_csu()) bad_kind("get_csu()");
    return *true_type_->csu_;
}

fkMDATA* TYPE::member(unsigned number) {
    const std::vector<fkMDATA*>& members = csu().members;
    return number == 0 || number > members.size() ? nullptr : members[number - 1];
}

void TYPE::check_nfrozen() const {
    if (frozen_) tp_die("Modifying frozen type:  TYPE::check_nfrozen");
}

void TYPE::set_is_complete(bool complete) {
    check_nfrozen();
    if (kind_ == ARRAY_KIND)
        array_->is_complete = complete;
    else if (is_csu())
        true_type_->csu_->is_complete = complete;
    else
        bad_kind("set_is_complete()");
}

void TYPE::append_parts(std::vector<TYPE*>& parts) const {
    const auto add = [&parts](TYPE* part) {
        if (part != nullptr) parts.push_back(part);
    };
    add(target_);
    add(class_);
    if (array_ != nullptr) add(array_->elem_type);
    if (enum_ != nullptr) add(enum_->underlying_type);
    if (func_ != nullptr) {
        add(func_->return_type);
        for (const fkPARAM& param : func_->params) add(param.type);
    }
    if (csu_ != nullptr) {
        for (const fkBCLASS& base : csu_->bases) add(base.type);
        for (const fkFFRIEND& function : csu_->friend_functions) add(function.type);
        for (TYPE* type : csu_->friend_classes) add(type);
        for (TYPE* type : csu_->nested_types) add(type);
        for (const fkMDATA* member : csu_->members) add(member->type);
        for (const fkSDATA& member : csu_->static_members) add(member.type);
        for (const fkMFUNC& function : csu_->member_functions) add(function.type);
        for (const fkPARAM& param : csu_->params) add(param.type);
    }
}

// --- Writer's marks.

void TYPE::mark_named_types(bool mark_all) {
    if (!mark_all) return;
    for (TYPE* type : pkg_->all_types())
        if (type != nullptr && (type->kind_ == TYPEDEF_KIND || type->kind_ >= ENUM_KIND) && type->has_name())
            type->equiv_end()->referenced_ = true;
}

void TYPE::mark_refed_types() {
    // `this` is the root; the marks spread from every marked type over a work list.
    std::vector<TYPE*> pending, parts;
    for (TYPE* type : pkg_->all_types())
        if (type != nullptr && type->referenced_) pending.push_back(type);
    while (!pending.empty()) {
        TYPE* type = pending.back();
        pending.pop_back();
        parts.clear();
        type->append_parts(parts);
        for (TYPE* part : parts) {
            TYPE* end = part->equiv_end();
            if (end->referenced_) continue;
            end->referenced_ = true;
            pending.push_back(end);
        }
    }
}

// --- Text.

std::string TYPE::map_name() const {
    const auto number = [](const TYPE* type) {
        return type == nullptr ? std::string("0")
                               : std::to_string(const_cast<TYPE*>(type)->equiv_end()->uid_);
    };
    const std::string layout = "|" + std::to_string(size_) + "|" + std::to_string(align_);
    switch (kind_) {
        case VOID_KIND: return "void";
        case INT_KIND:
            return "int" + std::to_string(subkind_) + (explicit_sign_ ? "s" : "") + (is_bool_ ? "b" : "") +
                   layout;
        case FLTPT_KIND: return "flt" + std::to_string(subkind_) + layout;
        case FXTPT_KIND: return "fxt" + std::to_string(subkind_) + (explicit_sign_ ? "s" : "") + layout;
        case COMPLEX_KIND: return "complex" + layout;
        case PTR_KIND: return "ptr" + layout;
        case REF_KIND: return "ref" + layout;
        case QUAL_KIND: return "qual" + std::to_string(subkind_) + layout;
        case TYPEDEF_KIND: {
            std::string text =
                "typedef " + std::string(name_) + (is_cpp_ ? "+" : "") + (lowered_ ? "l" : "") + layout;
            // Two declarations of one name stay apart only where a reader could tell them apart.
            if (has_psn_)
                text += "|" + std::string(psn_.file != nullptr ? psn_.file : "") + ":" +
                        std::to_string(psn_.line) + ":" + std::to_string(psn_.column);
            return text;
        }
        case ARRAY_KIND:
            return std::string(array_->is_vector ? "vector" : "array") + std::to_string(array_->count) +
                   (array_->is_complete ? "" : "i") + (array_->is_cpp ? "+" : "") + layout;
        case PTM_KIND: return "ptm" + number(class_) + layout;
        case FUNC_KIND: {
            std::string text = "func" + std::to_string(func_->cc_kind) + (func_->vararg ? "v" : "") +
                               (func_->proto ? "p" : "") + (func_->is_cpp ? "+" : "") + "(";
            for (const fkPARAM& param : func_->params)
                text += number(param.type) + ":" + std::to_string(param.attributes) + ":" + param.name + ",";
            return text + ")" + layout;
        }
        case ENUM_KIND: return "enum " + std::string(name_);
        case CLASS_KIND: return "class " + std::string(name_);
        case STRUCT_KIND: return "struct " + std::string(name_);
        case UNION_KIND: return "union " + std::string(name_);
    }
    return {};
}

namespace {

struct QUAL_WORD {
    unsigned bit;
    const char* word;
};
constexpr QUAL_WORD qual_words[] = {
    {QUAL_CONST, "const "}, {QUAL_VOLATILE, "volatile "}, {QUAL_PACKED, "packed "}, {QUAL_NEAR, "near "},
    {QUAL_FAR, "far "},     {QUAL_RESTRICT, "restrict "}, {QUAL_IOPORT, "ioport "}, {QUAL_ONCHIP, "onchip "}};

constexpr const char* int_words[IK_COUNT] = {
    "bool", "char",     "unsigned char", "wchar_t",       "short",     "unsigned short",
    "int",  "unsigned", "long",          "unsigned long", "long long", "unsigned long long"};
constexpr const char* flt_words[FK_COUNT] = {"float", "double", "long double"};

// A text shows so many levels of a declarator, and so many parts in all, before it ends in dots. A list
// takes several levels, since lists in lists are soon past reading.
constexpr int MAX_TEXT_LEVELS = 24;
constexpr int LEVELS_OF_LIST = 6;
constexpr int MAX_TEXT_PARTS = 200;

std::string qualifier_text(unsigned bits) {
    std::string text;
    for (const QUAL_WORD& qual : qual_words)
        if ((bits & qual.bit) != 0) text += qual.word;
    return text;
}

std::string declaration_text(TYPE* type, int level, int& parts);

std::string parameter_text(const FUNC_BODY& body, int level, int& parts) {
    std::string text;
    for (std::size_t i = 0; i < body.params.size(); i++) {
        if (parts <= 0 || i == 16) {
            text += ", ..";
            break;
        }
        if (i != 0) text += ", ";
        text += body.params[i].type == nullptr ? "?" : declaration_text(body.params[i].type, level, parts);
    }
    if (body.vararg) text += body.params.empty() ? "..." : ", ...";
    if (text.empty() && body.proto) text = "void";
    return "(" + text + ")";
}

std::string declaration_text(TYPE* type, int level, int& parts) {
    // The declarator grows outward from the middle: pointers to its left, arrays and lists to its right.
    std::string left, right;
    unsigned quals = 0; // seen on the way to the type that they qualify
    bool pointer_last = false;
    const auto wrap = [&] {
        if (!pointer_last) return;
        left = "(" + left;
        right += ")";
        pointer_last = false;
    };
    const auto prepend = [&](const std::string& star) {
        std::string words = qualifier_text(quals);
        if (left.empty() && !words.empty()) words.pop_back();
        left = star + words + left;
        quals = 0;
        pointer_last = true;
    };
    const auto finish = [&](const std::string& base) {
        const std::string declarator = left + right;
        return qualifier_text(quals) + (declarator.empty() ? base : base + " " + declarator);
    };
    for (; level < MAX_TEXT_LEVELS && parts > 0; level++) {
        parts--;
        switch (type->kind()) {
            case TYPE::VOID_KIND: return finish("void");
            case TYPE::INT_KIND:
                return finish(std::string(type->is_schar() ? "signed " : "") + int_words[type->ikind()]);
            case TYPE::FLTPT_KIND: return finish(flt_words[type->fkind()]);
            case TYPE::FXTPT_KIND:
                return finish("fixed<" + declaration_text(type->underlying_type(), level + 1, parts) + "," +
                              std::to_string(type->binary_point()) + ">");
            case TYPE::COMPLEX_KIND:
                return finish("complex " + declaration_text(type->part_type(), level + 1, parts));
            case TYPE::TYPEDEF_KIND: return finish(type->name());
            case TYPE::ENUM_KIND: return finish(std::string("enum ") + type->name());
            case TYPE::CLASS_KIND: return finish(std::string("class ") + type->name());
            case TYPE::STRUCT_KIND: return finish(std::string("struct ") + type->name());
            case TYPE::UNION_KIND: return finish(std::string("union ") + type->name());
            case TYPE::PTR_KIND:
            case TYPE::REF_KIND:
                prepend(type->kind() == TYPE::PTR_KIND ? "*" : "&");
                type = type->type_pointed_to();
                break;
            case TYPE::PTM_KIND:
                prepend(declaration_text(type->ptm_class(), level + 1, parts) + "::*");
                type = type->type_pointed_to();
                break;
            case TYPE::QUAL_KIND:
                quals |= type->own_qual();
                type = type->type_qualified();
                break;
            case TYPE::ARRAY_KIND: // its qualifiers are those of the element
                wrap();
                right += type->array().is_complete || type->array().count != 0
                             ? "[" + std::to_string(type->array().count) + "]"
                             : "[]";
                type = type->elem_type();
                break;
            case TYPE::FUNC_KIND:
                wrap();
                right += parameter_text(type->func(), level + LEVELS_OF_LIST, parts);
                if (type->return_type() == nullptr) return finish("?");
                type = type->return_type();
                break;
        }
    }
    return finish("..");
}

} // namespace

std::string TYPE::printstr() const {
    int parts = MAX_TEXT_PARTS;
    return declaration_text(const_cast<TYPE*>(this), 0, parts);
}

void TYPE::print(std::FILE* stream) const { std::fputs(printstr().c_str(), stream); }

void TYPE::println(std::FILE* stream) const {
    print(stream);
    std::fputc('\n', stream);
}

void TYPE::dump(std::FILE* stream) const {
    std::fprintf(stream, "uid=%u kind=%u size=%llu align=%u ", uid_, static_cast<unsigned>(kind_),
                 static_cast<unsigned long long>(size_), align_);
    if (kind_ == FXTPT_KIND)
        std::fprintf(stream, "underlying_type=%u binpt=%d ", target_ != nullptr ? target_->uid_ : 0,
                     subkind_);
    println(stream);
}
