// Clusters: statics that the same functions use lie together as members of one structure, so that a function
// needs one address for all of them.

#ifndef OPT5_CLUSTERS_H
#define OPT5_CLUSTERS_H

#include <cstdint>

class NODE;
class SYMTAB;

// Step 8: finds the statics that are worth a cluster, and makes the clusters. The bodies go on naming the
// statics. Runs once; does nothing when a function of the file is compiled at level 0. Near linear in the
// bodies.
void collect_clustered_symbols();

// Step 69: makes members of clusters of the statics that the current function names. Whoever brings such a
// name into a function behind this step calls it again: within a function a static must not go by two names.
// Linear in the function; costs nothing without clusters.
void expand_cluster_refs();

// Whether the step has run on the current function.
bool cluster_refs_are_expanded();
// The same for one tree that comes from outside of the function, which is not simplified. Returns the tree.
NODE* expand_cluster_refs(NODE* tree);

// The cluster that the static is a member of; null when it stands alone.
SYMTAB* cluster_of(const SYMTAB* symbol);

// The static that is the cluster's member at that place; null for another symbol.
SYMTAB* static_in_cluster(const SYMTAB* cluster, std::int64_t bits);
// Whether the tree is what the NAME of a static has become.
bool is_member_of_cluster(const NODE* tree);

// The end of the run: initialisers name clusters, too, and the members are dropped.
void close_clusters();

#endif
