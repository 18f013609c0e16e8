// Walks over trees, and questions about them.

#ifndef OPT5_BBUTILS_H
#define OPT5_BBUTILS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "node.h"

class SYMTAB;

// Stack of nodes for walks: trees may be deeper than the machine's stack. Small walks stay off the heap.
class NODE_STACK {
  public:
    bool empty() const { return size_ == 0; }
    void push(NODE* node) {
        if (size_ < INLINE) {
            first_[size_] = node;
        } else {
            rest_.push_back(node);
        }
        size_++;
    }
    NODE* pop() {
        size_--;
        if (size_ < INLINE) return first_[size_];
        NODE* node = rest_.back();
        rest_.pop_back();
        return node;
    }

  private:
    static constexpr std::size_t INLINE = 32;
    NODE* first_[INLINE];
    std::vector<NODE*> rest_;
    std::size_t size_ = 0;
};

// A number that no NODE::stamp bears yet, for one walk or one set of walks.
std::uint32_t fresh_stamp();

// Calls `visit` for every node of the tree, a node before its operands, left before right. The visitor may
// change a node's fields and replace its operands; it must not erase the node. A null tree has no nodes.
template <class VISIT> void walk_tree(NODE* tree, VISIT visit) {
    if (tree == nullptr) return;
    NODE_STACK pending;
    pending.push(tree);
    while (!pending.empty()) {
        for (NODE* node = pending.pop(); node != nullptr; node = node->left) {
            visit(node);
            if (node->right != nullptr) pending.push(node->right);
        }
    }
}

// Like walk_tree; stops and returns true as soon as `test` answers true.
template <class TEST> bool any_node(NODE* tree, TEST test) {
    if (tree == nullptr) return false;
    NODE_STACK pending;
    pending.push(tree);
    while (!pending.empty()) {
        for (NODE* node = pending.pop(); node != nullptr; node = node->left) {
            if (test(node)) return true;
            if (node->right != nullptr) pending.push(node->right);
        }
    }
    return false;
}

// Rewrites the tree bottom-up: `rewrite` is called for every node behind its operands, left before right, and
// returns what takes the node's place, never null. Returns the new root.
template <class REWRITE> NODE* rewrite_tree(NODE* tree, REWRITE rewrite) {
    NODE_STACK open; // nodes whose left operand is in work; below a null: whose right operand is
    for (NODE* node = tree;;) {
        for (; node->left != nullptr; node = node->left) open.push(node);
        // `node` has no left operand, and so none at all, or the loop below has just finished its operands.
        for (;;) {
            node = rewrite(node);
            if (open.empty()) return node;
            NODE* parent = open.pop();
            if (parent == nullptr) {
                parent = open.pop();
                parent->right = node;
                node = parent;
                continue;
            }
            parent->left = node;
            if (parent->right == nullptr) {
                node = parent;
                continue;
            }
            open.push(parent);
            open.push(nullptr);
            node = parent->right;
            break;
        }
    }
}

int count_nodes_in_tree(NODE* tree);
bool tree_contains_op(NODE* tree, int op);
bool tree_has_DDNODE_subtrees(NODE* tree);

// Whether evaluating the tree can do more than yield its value: assign, call, transfer control, or access
// volatile storage. Faults that the program promises not to have don't count.
bool tree_has_side_effects(NODE* tree);

// Whether the node by itself accesses volatile storage, as far as its types and its symbol tell.
bool node_is_volatile_access(const NODE* node);

// Whether reaching the place, a member of a member of an object, is volatile on the way.
bool place_is_volatile(const NODE* place);

// Whether the place is a bit-field, by `.` or `->`.
bool is_bit_field(const NODE* place);

// Marks the function's first statement as the one that receives the parameters, if it has that form: a
// left-nested PCOMMA chain of assignments of a parameter to itself, or one such assignment. By its form alone
// it could not be told from an assignment that the program makes further on.
void mark_arg_prolog(NODE* first_statement);

// Whether the tree is the marked statement, or one of the assignments in it. It is never to be optimised.
inline bool tree_is_arg_prolog(const NODE* tree) { return (tree->flags & NF_RECEIVES_PARAMETER) != 0; }

// Whether the statement is a comment: an ASM that is no assembly text.
bool is_comment(const NODE* statement);

// The function that a CALL or UCALL names directly, null for an indirect call.
SYMTAB* get_callee_for_call(NODE* call);

#endif
