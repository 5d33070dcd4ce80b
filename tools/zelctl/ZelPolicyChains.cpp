#include "ZelPolicyChains.h"

std::vector<TaskKeyList> ZelPolicyChains::deeperThan(const Graph& graph, size_t limit) {
    const auto [keys, edges] = ZelPolicyCycles::number(graph);
    const size_t count = keys.size();

    // Depth-first with an explicit stack; a node's depth is known once all
    // its dependencies are done. A dependency still open closes a cycle.
    enum State { kNew, kOpen, kDone };
    constexpr int kNone = -1;
    std::vector<State> state(count, kNew);
    std::vector<size_t> depth(count, 0);
    std::vector<int> deepest(count, kNone);  // the dependency the longest chain goes on to
    for (int root = 0; root < static_cast<int>(count); ++root) {
        if (state[root] != kNew) continue;
        std::vector<std::pair<int, size_t>> stack{{root, 0}};
        state[root] = kOpen;
        while (!stack.empty()) {
            auto& [node, edge] = stack.back();
            if (edge < edges[node].size()) {
                const int next = edges[node][edge++];
                if (state[next] == kNew) {
                    state[next] = kOpen;
                    stack.emplace_back(next, 0);
                }
                continue;
            }
            for (const int dependency : edges[node]) {
                if (state[dependency] == kDone && depth[dependency] + 1 > depth[node]) {
                    depth[node] = depth[dependency] + 1;
                    deepest[node] = dependency;
                }
            }
            state[node] = kDone;
            stack.pop_back();
        }
    }

    std::vector<bool> covered(count, false);
    for (size_t node = 0; node < count; ++node) {
        if (depth[node] <= limit) continue;
        for (const int dependency : edges[node]) covered[dependency] = true;
    }
    std::vector<TaskKeyList> chains;
    for (size_t node = 0; node < count; ++node) {
        if (depth[node] <= limit || covered[node]) continue;
        TaskKeyList chain;
        for (int at = static_cast<int>(node); at != kNone; at = deepest[at]) chain.push_back(keys[at]);
        chains.push_back(std::move(chain));
    }
    return chains;
}
