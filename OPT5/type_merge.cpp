// Comparing and merging types.
//
// Types of several translation units, or repeated declarations of one type, are made one by linking the
// later type to the earlier. Two types have one meaning when nothing that can be reached from them tells them
// apart. Structures may contain each other, so this is found the other way round: all types that look alike
// by themselves start in one block, and blocks are split until the parts of all types in a block lie in the
// same blocks. All types are sorted at once, since to compare them in pairs takes the square of their number
// where many have one name.

#include "types.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <unordered_map>

namespace {

// A name made up for a type without a tag. It makes no two types one: only their place in another type does.
bool is_made_up(const char* name) { return std::strncmp(name, "$$fake", 6) == 0; }

// The elements 0 to n - 1 in blocks, which are split.
class PARTITION {
  public:
    // `blocks` has the block of each element; blocks are numbered from 0 and none is empty.
    explicit PARTITION(const std::vector<unsigned>& blocks)
        : block_of_(blocks), elements_(blocks.size()), place_(blocks.size()) {
        for (const unsigned block : blocks) {
            if (block >= blocks_.size()) blocks_.resize(block + 1);
            blocks_[block].size++;
        }
        for (std::size_t b = 1; b < blocks_.size(); b++)
            blocks_[b].start = blocks_[b - 1].start + blocks_[b - 1].size;
        for (unsigned element = 0; element < blocks.size(); element++) {
            BLOCK& block = blocks_[blocks[element]];
            put(element, block.start + block.marked++);
        }
        for (BLOCK& block : blocks_) block.marked = 0;
    }

    std::size_t size() const { return blocks_.size(); }
    unsigned block_of(unsigned element) const { return block_of_[element]; }

    template <class VISIT> void for_each(std::size_t block, VISIT visit) const {
        for (unsigned i = 0; i < blocks_[block].size; i++) visit(elements_[blocks_[block].start + i]);
    }

    void mark(unsigned element) {
        BLOCK& block = blocks_[block_of_[element]];
        const unsigned border = block.start + block.marked;
        if (place_[element] < border) return;
        if (block.marked++ == 0) touched_.push_back(block_of_[element]);
        const unsigned other = elements_[border];
        put(other, place_[element]);
        put(element, border);
    }

    // Splits each block that has marked elements and others. The smaller part becomes a block of its own
    // behind all others. No element is marked any more.
    void split() {
        for (const unsigned number : touched_) {
            BLOCK& block = blocks_[number];
            const unsigned marked = block.marked, rest = block.size - marked;
            block.marked = 0;
            if (rest == 0) continue;
            BLOCK smaller;
            smaller.size = std::min(marked, rest);
            smaller.start = marked <= rest ? block.start : block.start + marked;
            if (marked <= rest) block.start += marked;
            block.size -= smaller.size;
            for (unsigned i = 0; i < smaller.size; i++)
                block_of_[elements_[smaller.start + i]] = static_cast<unsigned>(blocks_.size());
            blocks_.push_back(smaller);
        }
        touched_.clear();
    }

  private:
    struct BLOCK {
        unsigned start = 0, size = 0, marked = 0; // marked elements come first
    };

    void put(unsigned element, unsigned place) {
        elements_[place] = element;
        place_[element] = place;
    }

    std::vector<unsigned> block_of_;
    std::vector<unsigned> elements_; // block by block
    std::vector<unsigned> place_;    // of each element in `elements_`
    std::vector<BLOCK> blocks_;
    std::vector<unsigned> touched_; // blocks with marked elements
};

// One use of a type: it is part `index` of the type `user`.
struct USE {
    unsigned index, user;
};

// Splits blocks until the parts of the same index of all types in a block lie in one block. A block that is
// split after it has been the splitter leaves only its smaller part to look at: whatever uses the block and
// not that part uses the other. So a type takes part again only when its block was halved.
void refine(PARTITION& partition, const std::vector<std::vector<USE>>& uses) {
    std::vector<USE> splitter;
    for (std::size_t block = 0; block < partition.size(); block++) {
        splitter.clear();
        partition.for_each(block, [&](unsigned type) {
            splitter.insert(splitter.end(), uses[type].begin(), uses[type].end());
        });
        std::sort(splitter.begin(), splitter.end(), [](const USE& a, const USE& b) {
            return a.index != b.index ? a.index < b.index : a.user < b.user;
        });
        for (std::size_t i = 0; i < splitter.size(); i++) {
            partition.mark(splitter[i].user);
            if (i + 1 == splitter.size() || splitter[i + 1].index != splitter[i].index) partition.split();
        }
    }
}

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
            default: // different tagged types, unless one is only declared
                if (a->csu_ == nullptr || a->csu_->is_complete == b->csu_->is_complete ||
                    is_made_up(a->name_) || compare_type_names(a->name_, b->name_) != 0)
                    return false;
                break;
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

// The type but for its parts, which are appended to `parts`. Two types have one meaning when their texts are
// equal and their parts, one by one, have one meaning.
std::string TYPE_PKG::body_text(const TYPE* type, std::vector<TYPE*>& parts) const {
    if (!type->frozen_) return "open " + std::to_string(type->uid_);
    std::string text;
    const auto put = [&text](auto... values) { ((text += std::to_string(values) + ','), ...); };
    const auto put_name = [&text](std::string_view name) { (text += name) += '\0'; };
    const std::size_t first = parts.size();
    put(static_cast<unsigned>(type->kind_), type->size_, type->align_, type->subkind_, type->explicit_sign_,
        type->is_bool_, type->lowered_);
    put_name(is_made_up(type->name_) ? "$$fake" : demangle_type_name(type->name_));
    parts.insert(parts.end(), {type->target_, type->class_});
    if (type->array_ != nullptr) {
        put(type->array_->count, type->array_->is_complete, type->array_->is_vector);
        parts.push_back(type->array_->elem_type);
    }
    if (type->func_ != nullptr) {
        const FUNC_BODY& body = *type->func_;
        put(body.vararg, body.proto, body.cc_kind);
        parts.push_back(body.return_type);
        for (const fkPARAM& param : body.params) {
            put(param.attributes);
            parts.push_back(param.type);
        }
    }
    if (type->enum_ != nullptr) {
        for (const fkENUMERATOR& item : type->enum_->enumerators) {
            put_name(item.name);
            put(item.value);
        }
        parts.push_back(type->enum_->underlying_type);
    }
    if (type->csu_ != nullptr) {
        const CSU_BODY& body = *type->csu_;
        put(body.is_complete, body.is_lowered, body.is_struct_vector, body.is_cpp, body.count_word,
            body.members.size(), body.bases.size(), body.static_members.size(), body.member_functions.size());
        for (const fkMDATA* member : body.members) {
            put_name(member->name);
            put(member->offset, member->width, member->bit_field, member->attribute, member->field_attribute);
            parts.push_back(member->type);
        }
        for (const fkBCLASS& base : body.bases) {
            put(base.offset, base.is_virtual);
            parts.push_back(base.type);
        }
        for (const fkSDATA& member : body.static_members) {
            put_name(member.name);
            parts.push_back(member.type);
        }
        for (const fkMFUNC& function : body.member_functions) {
            put_name(function.name);
            parts.push_back(function.type);
        }
    }
    for (std::size_t i = first; i < parts.size(); i++) {
        text += parts[i] != nullptr ? 'p' : '0';
        if (parts[i] == nullptr) continue;
        parts[i] = parts[i]->equiv_end();
        if (parts[i]->uid_ == 0) put(type->uid_); // nothing is known yet of that part
    }
    return text;
}

// For every structure that is only declared, the first complete one of its tag: what it means. A structure
// that another holds by value keeps its own meaning, since the other could be the complete one.
std::vector<TYPE*> TYPE_PKG::definitions() const {
    std::vector<bool> held(by_uid_.size(), false);
    const auto hold = [&held](TYPE* type) {
        for (type = type->true_type_; !held[type->equiv_end()->uid_];
             type = type->array_->elem_type->true_type_) {
            held[type->equiv_end()->uid_] = true;
            if (type->kind_ != TYPE::ARRAY_KIND) break;
        }
    };
    const auto tag = [this](const TYPE* type) {
        return std::to_string(static_cast<unsigned>(type->kind_)) + ' ' + demangle_type_name(type->name_);
    };
    std::unordered_map<std::string, TYPE*> complete;
    for (TYPE* type : by_uid_) {
        if (type == nullptr || type->csu_ == nullptr) continue;
        for (const fkMDATA* member : type->csu_->members) hold(member->type);
        for (const fkBCLASS& base : type->csu_->bases) hold(base.type);
        if (type->frozen_ && type->csu_->is_complete && !is_made_up(type->name_))
            complete.emplace(tag(type), type->equiv_end());
    }
    std::vector<TYPE*> definition(by_uid_.size(), nullptr);
    for (TYPE* type : by_uid_) {
        if (type == nullptr || type->csu_ == nullptr || !type->frozen_ || held[type->uid_]) continue;
        if (type->csu_->is_complete || !type->csu_->members.empty() || !type->csu_->bases.empty()) continue;
        const auto found = complete.find(tag(type));
        if (found != complete.end()) definition[type->uid_] = found->second;
    }
    return definition;
}

// Numbers the meanings of all registered types, unless no type has come since the last time.
void TYPE_PKG::number_meanings() {
    if (meanings_known_) return;
    meanings_known_ = true;
    const std::vector<TYPE*> definition = definitions();
    const auto standing = [&definition](TYPE* type) {
        type = type->equiv_end();
        return definition[type->uid_] != nullptr ? definition[type->uid_] : type;
    };
    std::vector<TYPE*> types;
    for (TYPE* type : by_uid_)
        if (type != nullptr && standing(type) == type) {
            type->meaning_ = static_cast<unsigned>(types.size());
            types.push_back(type);
        }

    std::unordered_map<std::string, unsigned> blocks;
    std::vector<unsigned> block_of;
    std::vector<std::vector<USE>> uses(types.size());
    std::vector<TYPE*> parts;
    for (const TYPE* type : types) {
        parts.clear();
        const auto next = static_cast<unsigned>(blocks.size());
        block_of.push_back(blocks.emplace(body_text(type, parts), next).first->second);
        for (unsigned i = 0; i < parts.size(); i++)
            if (parts[i] != nullptr && parts[i]->uid_ != 0)
                uses[standing(parts[i])->meaning_].push_back({i, type->meaning_});
    }
    PARTITION partition(block_of);
    refine(partition, uses);

    first_of_meaning_.assign(partition.size(), nullptr);
    for (TYPE* type : types) {
        type->meaning_ = partition.block_of(type->meaning_);
        // What has been merged before is what later types are merged with.
        TYPE*& first = first_of_meaning_[type->meaning_];
        if (first == nullptr || (type->merged_ && !first->merged_)) first = type;
    }
    for (TYPE* type : by_uid_)
        if (type != nullptr) type->meaning_ = standing(type)->meaning_;
}

bool TYPE_PKG::equiv_mtypes(TYPE* a, TYPE* b) {
    a = a->equiv_end();
    b = b->equiv_end();
    if (a == b || a->uid_ == 0 || b->uid_ == 0) return a == b;
    number_meanings();
    return a->meaning_ == b->meaning_;
}

// Links two types of one meaning, and what stands in the same places of them: this is what makes types
// without a tag one.
void TYPE_PKG::link_types(TYPE* a, TYPE* b) {
    std::vector<std::pair<TYPE*, TYPE*>> pending{{a, b}};
    std::vector<TYPE*> parts_a, parts_b;
    while (!pending.empty()) {
        a = pending.back().first->equiv_end();
        b = pending.back().second->equiv_end();
        pending.pop_back();
        if (a == b) continue;
        const bool one_is_declared = a->csu_ != nullptr && a->csu_->is_complete != b->csu_->is_complete;
        if (one_is_declared ? b->csu_->is_complete : b->uid_ < a->uid_) std::swap(a, b);
        if (b->referenced_) continue;
        b->set_equiv(a);
        if (one_is_declared) continue;
        parts_a.clear();
        parts_b.clear();
        body_text(a, parts_a);
        body_text(b, parts_b);
        for (std::size_t i = 0; i < parts_a.size(); i++)
            if (parts_a[i] != nullptr) pending.emplace_back(parts_a[i], parts_b[i]);
    }
}

bool TYPE_PKG::merge_types(TYPE* a, TYPE* b) {
    if (!equiv_mtypes(a, b)) return false;
    link_types(a, b);
    return true;
}

// Merges one type whose parts have been merged.
void TYPE_PKG::merge_by_name(TYPE* type) {
    type->merged_ = true;
    if (type->equiv_end() != type || type->referenced_ || type->parent_ == nullptr) return;
    if (type->kind_ >= TYPE::ENUM_KIND) {
        if (!is_made_up(type->name_) && type->has_name()) link_types(first_of_meaning_[type->meaning_], type);
        return;
    }
    // A derived type of the same name whose parent has become the same.
    auto& names = type->parent_->equiv_end()->based_.by_name;
    TYPE* earlier = names.emplace(type->map_name(), type).first->second;
    if (earlier->meaning_ == type->meaning_) link_types(earlier, type);
}

int TYPE_PKG::find_equivalent_type(TYPE* type) {
    if (type->uid_ == 0) return 0;
    if (type->merged_ || type->is_void()) return 1;
    number_meanings();
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
