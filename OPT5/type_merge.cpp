// Comparing and merging types.
//
// Types of several translation units, or repeated declarations of one type, are made one by linking the
// later type to the earlier. Two structures may contain each other, so a comparison assumes what it is about
// to prove: pairs under comparison count as equal until a difference is found (the usual coinductive test for
// recursive types).

#include "types.h"

#include <cstring>

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
    struct PAIR {
        TYPE* a;
        TYPE* b;
        bool ignore;
    };
    std::vector<PAIR> pending{{const_cast<TYPE*>(left), const_cast<TYPE*>(right), ignore_qualifiers}};
    while (!pending.empty()) {
        PAIR pair = pending.back();
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
    std::string plain;
    const char* p = name;
    const bool nested = *p == 'N';
    if (nested) p++;
    bool mangled = *p >= '1' && *p <= '9';
    while (mangled && *p >= '1' && *p <= '9') {
        char* rest = nullptr;
        const unsigned long length = std::strtoul(p, &rest, 10);
        if (length > std::strlen(rest)) {
            mangled = false;
            break;
        }
        if (!plain.empty()) plain += "::";
        plain.append(rest, length);
        p = rest + length;
        if (!nested) break;
    }
    if (mangled && nested) mangled = *p++ == 'E';
    if (mangled) mangled = *p == '\0';
    if (is_cpp != nullptr) *is_cpp = mangled;
    return mangled ? plain : std::string(name);
}

int TYPE_PKG::compare_type_names(const char* a, const char* b) const {
    if (a == b) return 0;
    return demangle_type_name(a).compare(demangle_type_name(b));
}

namespace {

// The made-up names of types without a tag never make two types one.
bool is_made_up(const char* name) { return std::strncmp(name, "$$fake", 6) == 0; }

} // namespace

bool TYPE_PKG::csu_equal(TYPE* a, TYPE* b, std::vector<std::pair<TYPE*, TYPE*>>& assumed) {
    const CSU_BODY &x = *a->csu_, &y = *b->csu_;
    if (x.members.size() != y.members.size() || x.bases.size() != y.bases.size() ||
        x.static_members.size() != y.static_members.size() ||
        x.member_functions.size() != y.member_functions.size() || x.is_complete != y.is_complete ||
        x.is_struct_vector != y.is_struct_vector)
        return false;
    for (std::size_t i = 0; i < x.members.size(); i++) {
        if (!mdata_equal(*x.members[i], *y.members[i])) return false;
        assumed.emplace_back(x.members[i]->type, y.members[i]->type);
    }
    for (std::size_t i = 0; i < x.bases.size(); i++) {
        if (x.bases[i].offset != y.bases[i].offset || x.bases[i].is_virtual != y.bases[i].is_virtual)
            return false;
        assumed.emplace_back(x.bases[i].type, y.bases[i].type);
    }
    for (std::size_t i = 0; i < x.static_members.size(); i++) {
        if (x.static_members[i].name != y.static_members[i].name) return false;
        assumed.emplace_back(x.static_members[i].type, y.static_members[i].type);
    }
    for (std::size_t i = 0; i < x.member_functions.size(); i++) {
        if (x.member_functions[i].name != y.member_functions[i].name) return false;
        assumed.emplace_back(x.member_functions[i].type, y.member_functions[i].type);
    }
    return true;
}

// True when the two types, and all that they are built from, have one meaning.
bool TYPE_PKG::equiv_mtypes(TYPE* a, TYPE* b) {
    std::vector<std::pair<TYPE*, TYPE*>> pending{{a, b}};
    std::map<std::pair<unsigned, unsigned>, bool> seen;
    while (!pending.empty()) {
        auto [x, y] = pending.back();
        pending.pop_back();
        if (x == nullptr || y == nullptr) {
            if (x != y) return false;
            continue;
        }
        x = x->equiv_end();
        y = y->equiv_end();
        if (x == y || !seen.emplace(std::make_pair(x->uid_, y->uid_), true).second) continue;
        if (x->kind_ != y->kind_ || x->size_ != y->size_ || x->align_ != y->align_ ||
            x->subkind_ != y->subkind_)
            return false;
        if (x->explicit_sign_ != y->explicit_sign_ || x->is_bool_ != y->is_bool_ ||
            x->lowered_ != y->lowered_)
            return false;
        if (x->kind_ == TYPE::TYPEDEF_KIND || x->kind_ >= TYPE::ENUM_KIND)
            if (compare_type_names(x->name_, y->name_) != 0) return false;
        pending.emplace_back(x->target_, y->target_);
        pending.emplace_back(x->class_, y->class_);
        if (x->array_ != nullptr) {
            const ARRAY_BODY &m = *x->array_, &n = *y->array_;
            if (m.count != n.count || m.is_complete != n.is_complete || m.is_vector != n.is_vector)
                return false;
            pending.emplace_back(m.elem_type, n.elem_type);
        }
        if (x->func_ != nullptr) {
            const FUNC_BODY &m = *x->func_, &n = *y->func_;
            if (m.vararg != n.vararg || m.proto != n.proto || m.cc_kind != n.cc_kind ||
                m.params.size() != n.params.size())
                return false;
            pending.emplace_back(m.return_type, n.return_type);
            for (std::size_t i = 0; i < m.params.size(); i++) {
                if (m.params[i].attributes != n.params[i].attributes) return false;
                pending.emplace_back(m.params[i].type, n.params[i].type);
            }
        }
        if (x->enum_ != nullptr) {
            const ENUM_BODY &m = *x->enum_, &n = *y->enum_;
            if (m.enumerators.size() != n.enumerators.size()) return false;
            for (std::size_t i = 0; i < m.enumerators.size(); i++)
                if (m.enumerators[i].name != n.enumerators[i].name ||
                    m.enumerators[i].value != n.enumerators[i].value)
                    return false;
            pending.emplace_back(m.underlying_type, n.underlying_type);
        }
        if (x->csu_ != nullptr && !csu_equal(x, y, pending)) return false;
    }
    return true;
}

bool TYPE_PKG::merge_types(TYPE* a, TYPE* b) {
    if (a == b) return true;
    if (!equiv_mtypes(a, b)) return false;
    // The later type gives way to the earlier one.
    if (a->uid_ < b->uid_)
        b->set_equiv(a);
    else
        a->set_equiv(b);
    return true;
}

int TYPE_PKG::find_equivalent_type(TYPE* type) {
    if (type->uid_ == 0) return 0;
    if (type->merged_ || type->is_void()) return 1;
    type->merged_ = true;
    TYPE* end = type->equiv_end();
    if (end != type || end->referenced_ || type->parent_ == nullptr) return 0;

    TYPE* parent = type->parent_->equiv_end();
    if (type->kind_ >= TYPE::ENUM_KIND) {
        if (is_made_up(type->name_) || !type->has_name()) return 0;
        // Earlier types of that tag; the first that is equal is the representative.
        auto [entry, is_new] = parent->based_.by_name.emplace(type->map_name(), type);
        if (is_new || entry->second == type) return 0;
        return merge_types(entry->second, type) ? 1 : 0;
    }
    const std::string key = type->map_name();
    auto [entry, is_new] = parent->based_.by_name.emplace(key, type);
    if (is_new || entry->second == type) return 0;
    if (merge_types(entry->second, type)) return 1;
    parent->based_.by_name.emplace(key + "__merged", type);
    return 0;
}
