// TYPE_PKG: making, registering and interning types.
//
// A type is interned in its parent: the target of a pointer, the element of an array, the return type of a
// function, the root for basic and tagged types. The key is TYPE::map_name, which tells a type from its
// brothers, and the parent tells the rest. Tagged types are never interned; merging links equal ones.

#include "types.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <unordered_map>

int TYPE_PKG::cpu_version = 0;
int TYPE_PKG::abi = 0;
int TYPE_PKG::tp_count = 0;

namespace {

std::size_t bytes_in_use = 0;

// Bits of the basic types on the 16-bit target.
constexpr TYPE_LAYOUT int_layouts[IK_COUNT] = {{16, 16}, {16, 16}, {16, 16}, {16, 16}, {16, 16}, {16, 16},
                                               {16, 16}, {16, 16}, {32, 32}, {32, 32}, {64, 32}, {64, 32}};
constexpr TYPE_LAYOUT float_layout = {32, 32};
constexpr TYPE_LAYOUT pointer_layout = {16, 16};

constexpr std::uint64_t MAX_OBJECT_BYTES = 0x0fffffff; // the bits of an object fit 32 bits

// How far the wish of set_wanted_uid may reach past what the number of types accounts for: the table of
// types is indexed by number, and a file may ask for any.
constexpr std::size_t MAX_UID_GAP = 1u << 20;

// Bits of `count` objects; the largest number where the product has no 64 bits.
std::uint64_t bits_of(std::uint64_t size, std::uint64_t count) {
    std::uint64_t product = 0;
    return __builtin_mul_overflow(size, count, &product) ? UINT64_MAX : product;
}

} // namespace

// --- Memory.

void* TYPE_PKG::tp_alloc(std::size_t size) {
    void* block = std::calloc(1, size);
    if (block == nullptr) tp_die("Out of memory: tp_alloc()");
    bytes_in_use += size;
    return block;
}

void TYPE_PKG::tp_free(void* block, std::size_t size) {
    if (block == nullptr) return;
    bytes_in_use -= size;
    std::free(block);
}

std::size_t TYPE_PKG::memory_used() { return bytes_in_use; }

TYPE_PKG::TYPE_PKG() = default;

TYPE_PKG::~TYPE_PKG() {
    for (TYPE* type : all_) delete type;
}

void TYPE_PKG::delete_type_tree(TYPE* type, bool self, bool keep_basic) {
    // A type goes with its parent and with every type that it is built from.
    std::unordered_map<const TYPE*, std::vector<TYPE*>> users;
    std::vector<TYPE*> parts;
    for (TYPE* t : all_) {
        parts.clear();
        t->append_parts(parts);
        if (t->parent_ != nullptr) parts.push_back(t->parent_);
        for (const TYPE* part : parts) users[part].push_back(t);
    }
    std::vector<TYPE*> doomed;
    const auto doom = [&](TYPE* t) {
        const bool basic =
            t == root_ || std::find(std::begin(basic_), std::end(basic_), t) != std::end(basic_);
        if (t->doomed_ || (basic && keep_basic) || (t == type && !self)) return;
        t->doomed_ = true;
        doomed.push_back(t);
    };
    doom(type);
    if (!self || !type->doomed_)
        for (TYPE* t : std::vector<TYPE*>(type->based_.list)) doom(t);
    for (std::size_t i = 0; i < doomed.size(); i++)
        for (TYPE* user : users[doomed[i]]) doom(user);
    if (type == root_ && !keep_basic && self) // open types have no parent yet
        for (TYPE* t : all_) doom(t);

    // What stays forgets what goes.
    const auto goes = [](const TYPE* t) { return t != nullptr && t->doomed_; };
    const auto entry_goes = [&goes](const auto& entry) { return goes(entry.second); };
    std::erase_if(by_name_, entry_goes);
    for (TYPE*& t : by_uid_)
        if (goes(t)) t = nullptr;
    for (TYPE*& t : basic_)
        if (goes(t)) t = nullptr;
    if (goes(root_)) root_ = nullptr;
    meanings_known_ = false;
    std::vector<TYPE*> kept;
    for (TYPE* t : all_) {
        if (goes(t)) continue;
        kept.push_back(t);
        std::erase_if(t->based_.list, goes);
        std::erase_if(t->based_.by_name, entry_goes);
        TYPE* end = t->equiv_end();
        t->equiv_ = end == t || goes(end) ? nullptr : end;
        if (goes(t->normalized_)) t->normalized_ = nullptr;
    }
    for (const TYPE* t : doomed) delete t;
    all_ = std::move(kept);
}

// --- Construction and registration.

TYPE* TYPE_PKG::create_type(TYPE::KIND kind, const TYPE_LAYOUT& layout) {
    if (layout.size / 16 > MAX_OBJECT_BYTES)
        set_error(TP_SIZE_NOT_SUPPORTED,
                  "Object size %llu bytes is greater than maximum supported size %u bytes",
                  static_cast<unsigned long long>(layout.size / 16), static_cast<unsigned>(MAX_OBJECT_BYTES));
    auto* type = new TYPE;
    all_.push_back(type);
    type->kind_ = kind;
    type->pkg_ = this;
    type->size_ = layout.size;
    type->align_ = layout.align;
    type->true_type_ = type->stds_ = type;
    type->unit_ = unit_;
    if (layout.psn != nullptr) {
        type->psn_ = *layout.psn;
        type->has_psn_ = true;
    }
    return type;
}

void TYPE_PKG::assign_uid(TYPE* type) {
    const unsigned wanted = wanted_uid_;
    wanted_uid_ = 0;
    if (wanted >= next_uid_ ? wanted - next_uid_ < MAX_UID_GAP + all_.size() && wanted < UINT32_MAX
                            : wanted != 0 && by_uid_[wanted] == nullptr)
        type->uid_ = wanted;
    else
        type->uid_ = next_uid_;
    if (type->uid_ >= next_uid_) {
        next_uid_ = type->uid_ + 1;
        by_uid_.resize(next_uid_, nullptr);
    }
    by_uid_[type->uid_] = type;
    if (type->csu_ != nullptr)
        for (std::size_t i = 0; i < type->csu_->members.size(); i++)
            type->csu_->members[i]->number = static_cast<unsigned>(i + 1);
}

TYPE* TYPE_PKG::parent_of(const TYPE* type) const {
    switch (type->kind_) {
        case TYPE::COMPLEX_KIND:
        case TYPE::PTR_KIND:
        case TYPE::REF_KIND:
        case TYPE::QUAL_KIND:
        case TYPE::TYPEDEF_KIND:
        case TYPE::PTM_KIND:
        case TYPE::FXTPT_KIND: return type->target_ != nullptr ? type->target_ : root_;
        case TYPE::ARRAY_KIND: return type->array_->elem_type;
        case TYPE::FUNC_KIND: return type->func_->return_type != nullptr ? type->func_->return_type : root_;
        default: return root_;
    }
}

TYPE* TYPE_PKG::register_type(TYPE* type, TYPE* parent) {
    type->unit_ = unit_;
    if (!type->frozen_ || type->uid_ != 0) return type;
    const bool tagged = type->kind_ >= TYPE::ENUM_KIND;
    if (!tagged) {
        std::string key = type->map_name();
        const auto [entry, is_new] = parent->based_.by_name.emplace(std::move(key), type);
        if (!is_new && exact_types(entry->second, type)) {
            // The caller's object stays allocated, since others may have seen it, and stands for the old one.
            TYPE* old = entry->second;
            type->equiv_ = old;
            if (type == all_.back()) {
                all_.pop_back();
                delete type;
            }
            return old;
        }
    }
    meanings_known_ = false;
    type->parent_ = parent;
    parent->based_.list.push_back(type);
    assign_uid(type);
    if (type->has_name() && (tagged || type->kind_ == TYPE::TYPEDEF_KIND))
        by_name_.emplace(type->name_, type);

    stats_.types++;
    switch (type->kind_) {
        case TYPE::VOID_KIND:
        case TYPE::INT_KIND:
        case TYPE::FLTPT_KIND: stats_.basics++; break;
        case TYPE::COMPLEX_KIND:
            stats_.basics++;
            stats_.complexes++;
            break;
        case TYPE::PTR_KIND: stats_.ptrs++; break;
        case TYPE::QUAL_KIND: stats_.quals++; break;
        case TYPE::TYPEDEF_KIND: stats_.typedefs++; break;
        case TYPE::ARRAY_KIND:
            stats_.arrays++;
            if (type->array_->is_vector) stats_.vectors++;
            break;
        case TYPE::FUNC_KIND: stats_.funcs++; break;
        case TYPE::ENUM_KIND: stats_.enums++; break;
        case TYPE::CLASS_KIND:
        case TYPE::STRUCT_KIND:
        case TYPE::UNION_KIND: stats_.classes++; break;
        default: break;
    }
    return type;
}

TYPE* TYPE_PKG::derive(TYPE::KIND kind, TYPE* target, int subkind, const TYPE_LAYOUT& layout) {
    TYPE* type = create_type(kind, layout);
    type->target_ = target;
    type->subkind_ = subkind;
    if (kind == TYPE::QUAL_KIND || kind == TYPE::TYPEDEF_KIND) {
        const unsigned own = kind == TYPE::QUAL_KIND ? static_cast<unsigned>(subkind) : 0;
        type->true_type_ = target->true_type_;
        type->quals_ = target->quals_ | own;
        type->deep_quals_ = target->deep_quals_ | own;
        if (kind == TYPE::TYPEDEF_KIND) type->stds_ = target->stds_;
    }
    type->frozen_ = true;
    return type;
}

void TYPE_PKG::type_frozen(TYPE*& type) {
    switch (type->kind_) {
        case TYPE::ARRAY_KIND:
        case TYPE::FUNC_KIND:
        case TYPE::ENUM_KIND:
        case TYPE::CLASS_KIND:
        case TYPE::STRUCT_KIND:
        case TYPE::UNION_KIND: break;
        default: tp_die("bad kind: type_frozen()");
    }
    if (type->frozen_ && type->uid_ != 0) return;
    meanings_known_ = false;
    type->frozen_ = true;
    type->unit_ = unit_;
    if (type->uid_ != 0) return; // registered when it was begun
    type = register_type(type, parent_of(type));
}

// --- Basic types.

void TYPE_PKG::init_type_pkg() {
    tp_count++;
    by_uid_.assign(1, nullptr);
    root_ = create_type(TYPE::VOID_KIND, {0, 16});
    root_->frozen_ = true;
    for (int kind = 0; kind < IK_COUNT; kind++)
        basic_[kind] = mk_int(static_cast<IKIND>(kind), false, kind == IK_BOOL, int_layouts[kind]);
    for (int kind = 0; kind < FK_COUNT; kind++)
        basic_[IK_COUNT + kind] = mk_fltpt(static_cast<FKIND>(kind), float_layout);
    basic_[15] = register_type(derive(TYPE::VOID_KIND, nullptr, 0, {0, 16}), root_);
}

TYPE* TYPE_PKG::mk_void() { return basic_[15]; }

TYPE* TYPE_PKG::mk_int(IKIND kind, bool explicit_sign) {
    const TYPE* basic = basic_[kind];
    return mk_int(kind, explicit_sign, kind == IK_BOOL, {basic->size_, basic->align_});
}

TYPE* TYPE_PKG::mk_int(IKIND kind, bool explicit_sign, bool is_bool, const TYPE_LAYOUT& layout) {
    TYPE* type = derive(TYPE::INT_KIND, nullptr, kind, layout);
    type->explicit_sign_ = explicit_sign;
    type->is_bool_ = is_bool;
    return register_type(type, root_);
}

TYPE* TYPE_PKG::mk_boolean_int(TYPE* integer) {
    const TYPE* plain = integer->getr(TYPE::INT_KIND);
    return mk_int(plain->ikind(), plain->explicit_sign_, true, {plain->size_, plain->align_});
}

TYPE* TYPE_PKG::mk_fltpt(FKIND kind) { return flt_type(kind); }

TYPE* TYPE_PKG::mk_fltpt(FKIND kind, const TYPE_LAYOUT& layout) {
    return register_type(derive(TYPE::FLTPT_KIND, nullptr, kind, layout), root_);
}

TYPE* TYPE_PKG::mk_fxtpt(TYPE* underlying, int binary_point, bool explicit_sign, const TYPE_LAYOUT& layout) {
    TYPE* type = derive(TYPE::FXTPT_KIND, underlying, binary_point, layout);
    type->explicit_sign_ = explicit_sign;
    return register_type(type, parent_of(type));
}

TYPE* TYPE_PKG::mk_complex(TYPE* part) { return mk_complex(part, {bits_of(part->size_, 2), part->align_}); }

TYPE* TYPE_PKG::mk_complex(TYPE* part, const TYPE_LAYOUT& layout) {
    return register_type(derive(TYPE::COMPLEX_KIND, part, 0, layout), part);
}

// --- Derived types.

TYPE* TYPE_PKG::mk_ptr(TYPE* target) { return mk_ptr(target, pointer_layout); }

TYPE* TYPE_PKG::mk_ptr(TYPE* target, const TYPE_LAYOUT& layout) {
    return register_type(derive(TYPE::PTR_KIND, target, 0, layout), target);
}

TYPE* TYPE_PKG::mk_ref(TYPE* target) { return mk_ref(target, pointer_layout); }

TYPE* TYPE_PKG::mk_ref(TYPE* target, const TYPE_LAYOUT& layout) {
    return register_type(derive(TYPE::REF_KIND, target, 0, layout), target);
}

TYPE* TYPE_PKG::mk_qual(TYPE* target, unsigned char bits) {
    const unsigned present = target->qual_kind();
    if ((present | bits) == present) return target;
    // One qualified type holds all bits: a qualified target gives way to what it qualifies.
    while (target->kind_ == TYPE::QUAL_KIND) {
        bits = static_cast<unsigned char>(bits | target->subkind_);
        target = target->target_;
    }
    bits = static_cast<unsigned char>(bits & ~target->qual_kind());
    return mk_qual(target, bits, {target->size_, target->align_});
}

TYPE* TYPE_PKG::mk_qual(TYPE* target, unsigned char bits, const TYPE_LAYOUT& layout) {
    return register_type(derive(TYPE::QUAL_KIND, target, bits, layout), target);
}

TYPE* TYPE_PKG::remove_known_qual(TYPE* type, unsigned char bits) {
    if ((type->qual_kind() & bits) == 0) return type;
    const unsigned rest = type->qual_kind() & ~static_cast<unsigned>(bits);
    while (type->kind_ == TYPE::QUAL_KIND || (type->kind_ == TYPE::TYPEDEF_KIND && type->is_qualified()))
        type = type->target_;
    return rest != 0 ? mk_qual(type, static_cast<unsigned char>(rest)) : type;
}

TYPE* TYPE_PKG::mk_typedef(const char* name, TYPE* target, bool is_cpp, bool lowered,
                           const TYPE_LAYOUT& layout) {
    TYPE* type = derive(TYPE::TYPEDEF_KIND, target, 0, layout);
    type->name_ = intern_text(name);
    type->is_cpp_ = is_cpp;
    type->lowered_ = lowered;
    return register_type(type, parent_of(type));
}

TYPE* TYPE_PKG::mk_array(TYPE* element, unsigned count) {
    return mk_array(element, count, true, false, {bits_of(element->size_, count), element->align_});
}

TYPE* TYPE_PKG::derive_array(const ARRAY_BODY& body, const TYPE_LAYOUT& layout) {
    TYPE* type = create_type(TYPE::ARRAY_KIND, layout);
    type->array_ = new ARRAY_BODY(body);
    type->deep_quals_ = body.elem_type->deep_quals_;
    type->frozen_ = true;
    return register_type(type, body.elem_type);
}

TYPE* TYPE_PKG::mk_array(TYPE* element, unsigned count, bool is_complete, bool is_cpp,
                         const TYPE_LAYOUT& layout) {
    return derive_array({element, count, is_cpp, is_complete, false}, layout);
}

TYPE* TYPE_PKG::mk_vector(TYPE* element, unsigned count) {
    const std::uint64_t size = bits_of(element->size_, count);
    const auto align = static_cast<unsigned>(std::clamp<std::uint64_t>(size, 16, UINT32_MAX));
    return mk_vector(element, count, false, {size, align});
}

TYPE* TYPE_PKG::mk_vector(TYPE* element, unsigned count, bool is_cpp, const TYPE_LAYOUT& layout) {
    return derive_array({element, count, is_cpp, true, true}, layout);
}

TYPE* TYPE_PKG::mk_vpred(unsigned count) { return mk_vector(int_type(IK_BOOL), count); }

TYPE* TYPE_PKG::mk_ptm(TYPE* member, TYPE* csu) { return mk_ptm(member, csu, pointer_layout); }

TYPE* TYPE_PKG::mk_ptm(TYPE* member, TYPE* csu, const TYPE_LAYOUT& layout) {
    TYPE* type = derive(TYPE::PTM_KIND, member, 0, layout);
    type->class_ = csu;
    return register_type(type, member);
}

TYPE* TYPE_PKG::replace_array_elem(TYPE* array, TYPE* element) {
    // The qualifiers and typedefs around the array go; its dimensions stay, the innermost element changes.
    std::vector<const TYPE*> dimensions;
    for (TYPE* t = array; t->is_array(); t = t->elem_type()) dimensions.push_back(t->true_type_);
    if (dimensions.empty()) tp_die("replace_array_elem:  can't find element");
    for (auto d = dimensions.rbegin(); d != dimensions.rend(); ++d) {
        const ARRAY_BODY& body = *(*d)->array_;
        element = body.is_vector ? mk_vector(element, body.count)
                                 : mk_array(element, body.count, body.is_complete, body.is_cpp,
                                            {bits_of(element->size_, body.count), element->align_});
    }
    return element;
}

namespace {

IKIND with_sign(IKIND kind, bool is_signed) {
    switch (kind) {
        case IK_CHAR:
        case IK_UCHAR: return is_signed ? IK_CHAR : IK_UCHAR;
        case IK_WCHAR:
        case IK_SHORT:
        case IK_USHORT: return is_signed ? IK_SHORT : IK_USHORT;
        case IK_INT:
        case IK_UINT: return is_signed ? IK_INT : IK_UINT;
        case IK_LONG:
        case IK_ULONG: return is_signed ? IK_LONG : IK_ULONG;
        case IK_LLONG:
        case IK_ULLONG: return is_signed ? IK_LLONG : IK_ULLONG;
        default: return kind;
    }
}

} // namespace

TYPE* TYPE_PKG::mk_unsigned(TYPE* integer) {
    TYPE* plain = integer->is_enum() ? integer->underlying_type() : integer;
    return int_type(with_sign(plain->ikind(), false));
}

TYPE* TYPE_PKG::mk_signed(TYPE* integer) {
    TYPE* plain = integer->is_enum() ? integer->underlying_type() : integer;
    return int_type(with_sign(plain->ikind(), true));
}

TYPE* TYPE_PKG::mk_func(const FUNC_BODY& body) {
    TYPE* type = begin_func(body.return_type, body.vararg, body.proto, body.cc_kind, body.is_cpp);
    type->func_->params = body.params;
    for (fkPARAM& param : type->func_->params) param.name = intern_text(param.name);
    type_frozen(type);
    return type;
}

TYPE* TYPE_PKG::begin_func(TYPE* return_type, bool vararg, bool proto, std::uint8_t cc_kind, bool is_cpp) {
    TYPE* type = create_type(TYPE::FUNC_KIND, {0, 16});
    type->func_ = new FUNC_BODY;
    type->func_->return_type = return_type;
    type->func_->vararg = vararg;
    type->func_->proto = proto;
    type->func_->cc_kind = cc_kind;
    type->func_->is_cpp = is_cpp;
    return type;
}

TYPE* TYPE_PKG::mk_enum(const char* name, TYPE* underlying, std::uint8_t language,
                        const TYPE_LAYOUT& layout) {
    TYPE* type = create_type(TYPE::ENUM_KIND, layout);
    type->name_ = intern_text(name);
    type->enum_ = new ENUM_BODY;
    type->enum_->underlying_type = underlying;
    type->enum_->language = language;
    return type;
}

TYPE* TYPE_PKG::make_csu(TYPE::KIND kind, const char* name, const TYPE_LAYOUT& layout) {
    TYPE* type = create_type(kind, layout);
    type->csu_ = new CSU_BODY;
    type->name_ = intern_text(name[0] != '\0' ? std::string(name) : "$$fake" + std::to_string(next_fake_++));
    // Members may refer to the structure, so it has its number before it is complete.
    type->frozen_ = true;
    register_type(type, root_);
    type->frozen_ = false;
    return type;
}

TYPE* TYPE_PKG::mk_struct(const char* name, const TYPE_LAYOUT& layout) {
    return make_csu(TYPE::STRUCT_KIND, name, layout);
}

TYPE* TYPE_PKG::mk_union(const char* name, const TYPE_LAYOUT& layout) {
    return make_csu(TYPE::UNION_KIND, name, layout);
}

TYPE* TYPE_PKG::mk_class(const char* name, const TYPE_LAYOUT& layout) {
    return make_csu(TYPE::CLASS_KIND, name, layout);
}

FUNC_BODY* TYPE_PKG::open_func(TYPE* type) { return type->frozen_ ? nullptr : type->func_; }
ENUM_BODY* TYPE_PKG::open_enum(TYPE* type) { return type->frozen_ ? nullptr : type->enum_; }
CSU_BODY* TYPE_PKG::open_csu(TYPE* type) { return type->frozen_ ? nullptr : type->csu_; }

fkMDATA* TYPE_PKG::add_member(TYPE* csu, const fkMDATA& member) {
    csu->check_nfrozen();
    auto* copy = new fkMDATA(member);
    copy->name = intern_text(member.name);
    csu->csu_->members.push_back(copy);
    copy->number = static_cast<unsigned>(csu->csu_->members.size());
    return copy;
}

void TYPE_PKG::set_layout(TYPE* type, const TYPE_LAYOUT& layout) {
    type->check_nfrozen();
    // A qualified form of a structure may have been made before the structure's members were known. The
    // layout is part of its key, so it is entered anew.
    const std::uint64_t old_size = type->size_;
    const unsigned old_align = type->align_;
    std::vector<TYPE*> changed{type};
    for (std::size_t i = 0; i < changed.size(); i++) {
        TYPE* t = changed[i];
        for (TYPE* form : t->based_.list)
            if ((form->kind_ == TYPE::QUAL_KIND || form->kind_ == TYPE::TYPEDEF_KIND) &&
                form->size_ == old_size && form->align_ == old_align)
                changed.push_back(form);
        std::map<std::string, TYPE*, std::less<>>* names = t == type ? nullptr : &t->parent_->based_.by_name;
        if (names != nullptr) names->erase(t->map_name());
        t->size_ = layout.size;
        t->align_ = layout.align;
        if (names != nullptr) names->emplace(t->map_name(), t);
    }
}

// --- Look-up, normal forms, conversions.

TYPE* TYPE_PKG::find_named_type(const char* name) {
    const auto found = by_name_.find(name);
    return found == by_name_.end() ? nullptr : found->second;
}

TYPE* TYPE_PKG::find_type_by_number(unsigned uid) { return uid < by_uid_.size() ? by_uid_[uid] : nullptr; }

TYPE* TYPE_PKG::find_type(TYPE* type) {
    const auto& names = parent_of(type)->based_.by_name;
    const auto found = names.find(type->map_name());
    return found == names.end() ? nullptr : found->second;
}

TYPE* TYPE::normalized() {
    // Post-order over the parts with an explicit stack: a part's normal form is cached before it is needed.
    if (normalized_ != nullptr) return normalized_;
    std::vector<TYPE*> stack{this}, parts;
    while (!stack.empty()) {
        TYPE* type = stack.back();
        const std::size_t height = stack.size();
        if (type->normalized_ == nullptr && !type->is_csu() && type->kind_ != ENUM_KIND) {
            parts.clear();
            type->append_parts(parts);
            for (TYPE* part : parts)
                if (part->normalized_ == nullptr && part->kind_ < ENUM_KIND) stack.push_back(part);
        }
        if (stack.size() != height) continue;
        if (type->normalized_ == nullptr) {
            TYPE* normal = pkg_->normalized_type_uncached(type);
            type->normalized_ = normal;
            normal->normalized_ = normal;
        }
        stack.pop_back();
    }
    return normalized_;
}

TYPE* TYPE_PKG::normalized_type_uncached(TYPE* type) {
    const TYPE_LAYOUT layout{type->size_, type->align_};
    const auto normal = [](TYPE* part) { return part == nullptr ? nullptr : part->normalized(); };
    switch (type->kind_) {
        case TYPE::VOID_KIND:
        case TYPE::FXTPT_KIND:
        case TYPE::PTM_KIND:
        case TYPE::ENUM_KIND:
        case TYPE::CLASS_KIND:
        case TYPE::STRUCT_KIND:
        case TYPE::UNION_KIND: return type;
        case TYPE::INT_KIND: {
            // A size of the file's own stays: it is what the code generator goes by.
            TYPE* basic = basic_[type->subkind_];
            return basic->size_ == type->size_ && basic->align_ == type->align_ ? basic : type;
        }
        case TYPE::FLTPT_KIND: {
            TYPE* basic = basic_[IK_COUNT + type->subkind_];
            return basic->size_ == type->size_ && basic->align_ == type->align_ ? basic : type;
        }
        case TYPE::COMPLEX_KIND: return mk_complex(normal(type->target_), layout);
        case TYPE::PTR_KIND: return mk_ptr(normal(type->target_), layout);
        case TYPE::REF_KIND: return mk_ref(normal(type->target_), layout);
        case TYPE::QUAL_KIND:
            return mk_qual(normal(type->target_), static_cast<unsigned char>(type->subkind_));
        case TYPE::TYPEDEF_KIND: return normal(type->target_);
        case TYPE::ARRAY_KIND:
            if (type->array_->is_vector)
                return mk_vector(normal(type->array_->elem_type), type->array_->count, type->array_->is_cpp,
                                 layout);
            return mk_array(normal(type->array_->elem_type), type->array_->count, type->array_->is_complete,
                            type->array_->is_cpp, layout);
        case TYPE::FUNC_KIND: {
            FUNC_BODY body = *type->func_;
            body.return_type = normal(body.return_type);
            for (fkPARAM& param : body.params) {
                param.type = normal(param.type);
                param.name = "";
            }
            return mk_func(body);
        }
        default: tp_die("Tried to normalize unknown type kind");
    }
}

TYPE* TYPE_PKG::c_integral_promotions(TYPE* type) {
    if (type->uid_ == 0) tp_die("Unregistered type:  c_integral_promotions()");
    if (type->is_enum()) type = type->underlying_type();
    if (!type->is_integer()) return type;
    switch (type->ikind()) {
        case IK_BOOL:
        case IK_CHAR:
        case IK_UCHAR: // the parser promotes by the character's eight significant bits
        case IK_SHORT: return int_type(IK_INT);
        case IK_WCHAR:
        case IK_USHORT: return int_type(type->size() < int_type(IK_INT)->size() ? IK_INT : IK_UINT);
        default: return int_type(type->ikind());
    }
}

TYPE* TYPE_PKG::c_usual_arith_conv(TYPE* a, TYPE* b) {
    if (a->uid_ == 0 || b->uid_ == 0) tp_die("Unregistered type:  c_usual_arith_conv()");
    if (a->is_complex() || b->is_complex())
        return mk_complex(
            c_usual_arith_conv(a->is_complex() ? a->part_type() : a, b->is_complex() ? b->part_type() : b));
    if (a->is_fltpt() || b->is_fltpt()) {
        const int rank_a = a->is_fltpt() ? a->fkind() : -1;
        const int rank_b = b->is_fltpt() ? b->fkind() : -1;
        return flt_type(static_cast<FKIND>(rank_a > rank_b ? rank_a : rank_b));
    }
    TYPE* fixed_a = a->getd(TYPE::FXTPT_KIND);
    TYPE* fixed_b = b->getd(TYPE::FXTPT_KIND);
    if (fixed_a != nullptr && fixed_b != nullptr)
        return fixed_b->size() > fixed_a->size() ? fixed_b : fixed_a;
    if (fixed_a != nullptr || fixed_b != nullptr) return fixed_a != nullptr ? fixed_a : fixed_b;
    TYPE* left = c_integral_promotions(a);
    TYPE* right = c_integral_promotions(b);
    if (left == right || !left->is_integer() || !right->is_integer()) return left;
    if (left->is_signed() == right->is_signed()) return left->rank() >= right->rank() ? left : right;
    TYPE* with = left->is_signed() ? left : right;
    TYPE* without = left->is_signed() ? right : left;
    if (without->rank() >= with->rank()) return without;
    if (with->size() > without->size()) return with;
    return mk_unsigned(with);
}

bool TYPE_PKG::is_same_sign(const TYPE* a, const TYPE* b) const { return a->is_signed() == b->is_signed(); }

std::int64_t TYPE_PKG::get_container_offset_for_field(TYPE* container, std::int64_t offset,
                                                      unsigned width) const {
    const auto size = static_cast<std::int64_t>(container->size());
    if (size == 0 || width == 0) return -1;
    const std::int64_t start = offset >= 0 ? offset / size * size : -1;
    return start >= 0 && offset + width <= start + size ? start : -1;
}

bool TYPE_PKG::is_legal_container_for_field(TYPE* container, std::int64_t offset, unsigned width) const {
    return container->is_integer() && get_container_offset_for_field(container, offset, width) >= 0;
}

// --- Errors and statistics.

void TYPE_PKG::set_error(TP_ERROR_CODE code, const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    error_code_ = code;
    error_text_ = text;
}

void TYPE_PKG::print_stats(std::FILE* stream) const {
    std::fprintf(stream, "***********TYPE PACKAGE STATISTICS************\n");
    std::fprintf(stream, "** Types created            :  %d\n", static_cast<int>(stats_.types));
    std::fprintf(stream, "** Class types created      :  %d\n", static_cast<int>(stats_.classes));
    std::fprintf(stream, "** Enumeration types created:  %d\n", static_cast<int>(stats_.enums));
    std::fprintf(stream, "** Function types created   :  %d\n", static_cast<int>(stats_.funcs));
    std::fprintf(stream, "** Array types created      :  %d\n", static_cast<int>(stats_.arrays));
    std::fprintf(stream, "** of which are Vector types:  %d\n", static_cast<int>(stats_.vectors));
    std::fprintf(stream, "** Pointer types created    :  %d\n", static_cast<int>(stats_.ptrs));
    std::fprintf(stream, "** Qualifiers created       :  %d\n", static_cast<int>(stats_.quals));
    std::fprintf(stream, "** Typedef types created    :  %d\n", static_cast<int>(stats_.typedefs));
    std::fprintf(stream, "** Basic types created      :  %d\n", static_cast<int>(stats_.basics));
    std::fprintf(stream, "** of which are Complex     :  %d\n", static_cast<int>(stats_.complexes));
    std::fprintf(stream, "** Memory used              :  %d bytes\n", static_cast<int>(bytes_in_use));
    std::fprintf(stream, "**********************************************\n");
}
