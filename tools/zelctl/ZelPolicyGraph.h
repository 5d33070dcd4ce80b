#pragma once

#include <ostream>

#include "ZelPolicy.h"

// Writes a policy's task dependency graph in Graphviz DOT: one cluster per
// component, one node per task, a solid edge from a task to each task of its
// allow list (it depends on them) and a dashed edge to each of its deny list.
// Auto-started tasks have a double border; "ZEL_TASK_CRITICAL" tasks are red.
class ZelPolicyGraph {
public:
    static void writeDot(const ZelPolicy& policy, std::ostream& out);
};
