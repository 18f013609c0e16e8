// Comparing and merging types.
//
// Types of several translation units, or repeated declarations of one type, are made one by linking the
// later type to the earlier. Two structures may contain each other, so a comparison assumes what it is about
// to prove: pairs under comparison count as equal until a difference is found (the usual coinductive test for
// recursive types).

#include "types.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace {

// A name made up for a type without a tag. It makes no two types one: only their place in another type does.
bool is_made_up(const char* name) { return std::strncmp(name, "$$fake", 6) == 0; }

// Different types of one name that a search goes through.
constexpr int MAX_VARIANTS = 16;

} // namespace

bool TYPE_PKG::exact_types(const TYPE* a, const TYPE* b) const {
    if (a == b) return true;
    if (a->kind_ != b->kind_ || a->size_ != b->size_ || a->align_ != b->align_) return false;
    if (a->subkind_ != b->subkind_ || a->explicit_sign_ != b->explicit_sign_ || a->is_bool_ != b->is_bool_)
        return false;
    if (a->target_ != b->target_ || a->class_ != b->class_ || a->name_ != b->name_) return false;
    if (a->lowered_ != b->lowered_ || a->is_cpp_ != b->is_cpp_) return false;
    if (a->kind_ >= TYPE::ENUM_KIND) return false; // tagged types are one only when they are the same object
    if (a->array_ != nullptr) {
        const ARRAY_BODY &x = *a->array_, &y = *b->array_;
        return x.elem_type == y.elem_type && x.count == y.count && x.is_cpp == y.is_cpp &&
               x.is_complete == y.is_complete && x.is_vector == y.is_vector;
    }
    if (a->func_ != nullptr) {
        const FUNC_BODY &x = *a->func_, &y = *b->func_;
        if (x.return_type != y.return_type || x.vararg != y.vararg || x.proto != y.proto ||
            x.cc_kind != y.cc_kind || x.is_cpp != y.is_cpp || x.params.size() != y.params.size())
            return false;
        for (std::size_t i = 0; i < x.params.size(); i++)
            if (x.params[i].type != y.params[i].type || x.params[i].attributes != y.params[i].attributes ||
                x.params[i].name != y.params[i].name)
                return false;
    }
    return true;
}

bool TYPE_PKG::compatible_types(const TYPE* left, const TYPE* right, bool ignore_qualifiers) const {
    struct QUESTION {
        TYPE* a;
        TYPE* b;
        bool ignore;
    };
    std::vector<QUESTION> pending{{const_cast<TYPE*>(left), const_cast<TYPE*>(right), ignore_qualifiers}};
    std::set<std::pair<unsigned, unsigned>> seen; // functions, by number: what they share is compared once
    while (!pending.empty()) {
        const QUESTION pair = pending.back();
        pending.pop_back();
        if (pair.a == pair.b) continue;
        if (pair.a == nullptr || pair.b == nullptr) return false;
        if (!pair.ignore && pair.a->qual_kind() != pair.b->qual_kind()) return false;
        TYPE* a = pair.a->true_type_->equiv_end()->true_type_;
        TYPE* b = pair.b->true_type_->equiv_end()->true_type_;
        if (a == b) continue;
        // An enumeration is compatible with its underlying type.
        if (a->kind_ == TYPE::ENUM_KIND && b->kind_ == TYPE::INT_KIND)
            a = a->enum_->underlying_type->true_type_;
        if (b->kind_ == TYPE::ENUM_KIND && a->kind_ == TYPE::INT_KIND)
            b = b->enum_->underlying_type->true_type_;
        if (a->kind_ != b->kind_) return false;
        switch (a->kind_) {
            case TYPE::VOID_KIND: break;
            case TYPE::INT_KIND:
            case TYPE::FLTPT_KIND:
                if (a->subkind_ != b->subkind_ || a->size_ != b->size_) return false;
                break;
            case TYPE::FXTPT_KIND:
                if (a->subkind_ != b->subkind_ || a->size_ != b->size_) return false;
                pending.push_back({a->target_, b->target_, true});
                break;
            case TYPE::COMPLEX_KIND: pending.push_back({a->target_, b->target_, true}); break;
            case TYPE::PTR_KIND:
            case TYPE::REF_KIND:
                if (a->size_ != b->size_) return false;
                pending.push_back({a->target_, b->target_, false});
                break;
            case TYPE::PTM_KIND:
                pending.push_back({a->target_, b->target_, false});
                pending.push_back({a->class_, b->class_, true});
                break;
            case TYPE::ARRAY_KIND:
                if (a->array_->is_vector != b->array_->is_vector) return false;
                if (a->array_->is_complete && b->array_->is_complete && a->array_->count != b->array_->count)
                    return false;
                pending.push_back({a->array_->elem_type, b->array_->elem_type, pair.ignore});
                break;
            case TYPE::FUNC_KIND: {
                if (!seen.emplace(a->uid_, b->uid_).second && a->uid_ != 0 && b->uid_ != 0) break;
                const FUNC_BODY &x = *a->func_, &y = *b->func_;
                pending.push_back({x.return_type, y.return_type, true});
                if (!x.proto || !y.proto) break;
                if (x.vararg != y.vararg || x.params.size() != y.params.size()) return false;
                for (std::size_t i = 0; i < x.params.size(); i++)
                    pending.push_back({x.params[i].type, y.params[i].type, true});
                break;
            }
            default: return false; // different tagged types
        }
    }
    return true;
}

bool TYPE_PKG::mdata_equal(const fkMDATA& a, const fkMDATA& b) const {
    return a.name == b.name && a.offset == b.offset && a.width == b.width && a.bit_field == b.bit_field &&
           a.attribute == b.attribute && a.field_attribute == b.field_attribute;
}

std::string TYPE_PKG::demangle_type_name(const char* name, bool* is_cpp) const {
    // A mangled class name is its length and its letters, possibly nested in N..E; anything else is plain.
    std::string_view rest = name;
    std::string plain;
    const bool nested = rest.starts_with('N');
    if (nested) rest.remove_prefix(1);
    bool mangled = false;
    do {
        std::size_t length = 0, digits = 0;
        while (digits < rest.size() && rest[digits] >= (digits == 0 ? '1' : '0') && rest[digits] <= '9' &&
               length < rest.size())
            length = length * 10 + static_cast<std::size_t>(rest[digits++] - '0');
        mangled = digits != 0 && length <= rest.size() - digits;
        if (!mangled) break;
        if (!plain.empty()) plain += "::";
        plain += rest.substr(digits, length);
        rest.remove_prefix(digits + length);
    } while (nested && !rest.empty() && rest[0] != 'E');
    mangled = mangled && rest == (nested ? "E" : "");
    if (is_cpp != nullptr) *is_cpp = mangled;
    return mangled ? plain : std::string(name);
}

int TYPE_PKG::compare_type_names(const char* a, const char* b) const {
    if (a == b) return 0;
    return demangle_type_name(a).compare(demangle_type_name(b));
}

bool TYPE_PKG::csu_equal(TYPE* a, TYPE* b, int from, std::vector<PAIR>& pairs) const {
    const CSU_BODY &x = *a->csu_, &y = *b->csu_;
    if (x.members.size() != y.members.size() || x.bases.size() != y.bases.size() ||
        x.static_members.size() != y.static_members.size() ||
        x.member_functions.size() != y.member_functions.size() || x.is_lowered != y.is_lowered ||
        x.is_struct_vector != y.is_struct_vector || x.is_cpp != y.is_cpp || x.count_word != y.count_word)
        return false;
    for (std::size_t i = 0; i < x.members.size(); i++) {
        if (!mdata_equal(*x.members[i], *y.members[i])) return false;
        pairs.push_back({x.members[i]->type, y.members[i]->type, from});
    }
    for (std::size_t i = 0; i < x.bases.size(); i++) {
        if (x.bases[i].offset != y.bases[i].offset || x.bases[i].is_virtual != y.bases[i].is_virtual)
            return false;
        pairs.push_back({x.bases[i].type, y.bases[i].type, from});
    }
    for (std::size_t i = 0; i < x.static_members.size(); i++) {
        if (x.static_members[i].name != y.static_members[i].name) return false;
        pairs.push_back({x.static_members[i].type, y.static_members[i].type, from});
    }
    for (std::size_t i = 0; i < x.member_functions.size(); i++) {
        if (x.member_functions[i].name != y.member_functions[i].name) return false;
        pairs.push_back({x.member_functions[i].type, y.member_functions[i].type, from});
    }
    return true;
}

// Compares two types but for their parts, which become pairs of their own.
bool TYPE_PKG::body_equal(TYPE* x, TYPE* y, int from, std::vector<PAIR>& pairs) const {
    if (x->kind_ != y->kind_) return false;
    const bool named = !is_made_up(x->name_) || !is_made_up(y->name_);
    if (named && compare_type_names(x->name_, y->name_) != 0) return false;
    if (x->csu_ != nullptr && x->csu_->is_complete != y->csu_->is_complete) return named;
    if (x->size_ != y->size_ || x->align_ != y->align_ || x->subkind_ != y->subkind_ ||
        x->explicit_sign_ != y->explicit_sign_ || x->is_bool_ != y->is_bool_ || x->lowered_ != y->lowered_)
        return false;
    pairs.push_back({x->target_, y->target_, from});
    pairs.push_back({x->class_, y->class_, from});
    if (x->array_ != nullptr) {
        const ARRAY_BODY &m = *x->array_, &n = *y->array_;
        if (m.count != n.count || m.is_complete != n.is_complete || m.is_vector != n.is_vector) return false;
        pairs.push_back({m.elem_type, n.elem_type, from});
    }
    if (x->func_ != nullptr) {
        const FUNC_BODY &m = *x->func_, &n = *y->func_;
        if (m.vararg != n.vararg || m.proto != n.proto || m.cc_kind != n.cc_kind ||
            m.params.size() != n.params.size())
            return false;
        pairs.push_back({m.return_type, n.return_type, from});
        for (std::size_t i = 0; i < m.params.size(); i++) {
            if (m.params[i].attributes != n.params[i].attributes) return false;
            pairs.push_back({m.params[i].type, n.params[i].type, from});
        }
    }
    if (x->enum_ != nullptr) {
        const ENUM_BODY &m = *x->enum_, &n = *y->enum_;
        if (m.enumerators.size() != n.enumerators.size()) return false;
        for (std::size_t i = 0; i < m.enumerators.size(); i++)
            if (m.enumerators[i].name != n.enumerators[i].name ||
                m.enumerators[i].value != n.enumerators[i].value)
                return false;
        pairs.push_back({m.underlying_type, n.underlying_type, from});
    }
    return x->csu_ == nullptr || csu_equal(x, y, from, pairs);
}

// True when the types have one meaning; `pairs` then holds all pairs that have, as far as they are not the
// same already. Where two types differ, so do all on the way to them, and none of these is compared again.
bool TYPE_PKG::equal_pairs(TYPE* a, TYPE* b, std::vector<PAIR>& pairs) {
    using KEY = std::pair<unsigned, unsigned>;
    const auto key = [](const TYPE* x, const TYPE* y) -> KEY { return std::minmax(x->uid_, y->uid_); };
    std::set<KEY> seen{key(a, b)};
    pairs = {{a, b, -1}};
    std::vector<PAIR> parts;
    for (std::size_t i = 0; i < pairs.size(); i++) {
        const auto [x, y, from] = pairs[i];
        const auto index = static_cast<int>(i);
        parts.clear();
        bool equal = !unequal_.contains(key(x, y)) && body_equal(x, y, index, parts);
        for (const PAIR& part : parts) {
            if (part.a == nullptr || part.b == nullptr) {
                equal = equal && part.a == part.b;
                continue;
            }
            TYPE* m = part.a->equiv_end();
            TYPE* n = part.b->equiv_end();
            if (m == n || !equal) continue;
            if (m->uid_ == 0 || n->uid_ == 0)
                equal = false;
            else if (seen.insert(key(m, n)).second)
                pairs.push_back({m, n, index});
        }
        if (equal) continue;
        for (int at = index; at >= 0; at = pairs[static_cast<std::size_t>(at)].from)
            unequal_.insert(
                key(pairs[static_cast<std::size_t>(at)].a, pairs[static_cast<std::size_t>(at)].b));
        return false;
    }
    return true;
}

bool TYPE_PKG::equiv_mtypes(TYPE* a, TYPE* b) {
    a = a->equiv_end();
    b = b->equiv_end();
    std::vector<PAIR> pairs;
    return a == b || equal_pairs(a, b, pairs);
}

void TYPE_PKG::link_types(TYPE* a, TYPE* b) {
    const bool a_stands = a->csu_ != nullptr && a->csu_->is_complete != b->csu_->is_complete
                              ? a->csu_->is_complete
                              : a->uid_ < b->uid_;
    if (a_stands)
        b->set_equiv(a);
    else
        a->set_equiv(b);
}

bool TYPE_PKG::merge_types(TYPE* a, TYPE* b) {
    a = a->equiv_end();
    b = b->equiv_end();
    if (a == b) return true;
    std::vector<PAIR> pairs;
    if (!equal_pairs(a, b, pairs)) return false;
    // What proves them one proves the structures and enumerations in them one, which need no comparison of
    // their own any more. Derived types are left to find_equivalent_type, which finds them by name and
    // parent. A declared structure can be paired with two that differ: only the first of them gets it.
    for (const PAIR& pair : pairs)
        if (pair.from < 0 || (pair.a->kind_ >= TYPE::ENUM_KIND && pair.a->equiv_end() == pair.a &&
                              pair.b->equiv_end() == pair.b))
            link_types(pair.a, pair.b);
    return true;
}

// Merges one type whose parts have been merged.
void TYPE_PKG::merge_by_name(TYPE* type) {
    type->merged_ = true;
    if (type->equiv_end() != type || type->referenced_ || type->parent_ == nullptr) return;
    if (type->kind_ >= TYPE::ENUM_KIND && (is_made_up(type->name_) || !type->has_name())) return;

    // Earlier types of that name; the first that is equal is the representative. Those that differ from the
    // first stand behind it under longer names, and a name has few of them or is not worth the search.
    auto& names = type->parent_->equiv_end()->based_.by_name;
    std::string key = type->map_name();
    for (int variant = 0; variant < MAX_VARIANTS; variant++) {
        const auto [entry, is_new] = names.emplace(key, type);
        if (is_new || entry->second == type || merge_types(entry->second, type)) return;
        key += "__merged";
    }
}

int TYPE_PKG::find_equivalent_type(TYPE* type) {
    if (type->uid_ == 0) return 0;
    if (type->merged_ || type->is_void()) return 1;
    std::vector<TYPE*> stack{type}, parts;
    while (!stack.empty()) {
        TYPE* top = stack.back();
        const std::size_t height = stack.size();
        if (!top->merged_ && top->kind_ < TYPE::ENUM_KIND) {
            parts.clear();
            top->append_parts(parts);
            for (TYPE* part : parts)
                if (!part->merged_) stack.push_back(part);
        }
        if (stack.size() != height) continue;
        if (!top->merged_) merge_by_name(top);
        stack.pop_back();
    }
    return type->equiv_end() != type ? 1 : 0;
}
