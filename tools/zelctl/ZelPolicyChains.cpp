#include "ZelPolicyChains.h"

#include <map>

std::vector<TaskKeyList> ZelPolicyChains::deeperThan(const Graph& graph, size_t limit) {
    // Nodes numbered in key order.
    std::map<TaskKey, size_t> numbers;
    for (const auto& [key, allowList] : graph) {
        numbers.emplace(key, 0);
        for (const TaskKey& dependency : allowList) numbers.emplace(dependency, 0);
    }
    std::vector<TaskKey> keys;
    for (auto& [key, number] : numbers) {
        number = keys.size();
        keys.push_back(key);
    }
    std::vector<std::vector<size_t>> edges(keys.size());
    for (const auto& [key, allowList] : graph) {
        for (const TaskKey& dependency : allowList) edges[numbers[key]].push_back(numbers[dependency]);
    }

    // Depth-first with an explicit stack; a node's depth is known once all
    // its dependencies are done. A dependency still open closes a cycle.
    enum State { kNew, kOpen, kDone };
    constexpr size_t kNone = static_cast<size_t>(-1);
    std::vector<State> state(keys.size(), kNew);
    std::vector<size_t> depth(keys.size(), 0);
    std::vector<size_t> deepest(keys.size(), kNone);  // the dependency the longest chain goes on to
    for (size_t root = 0; root < keys.size(); ++root) {
        if (state[root] != kNew) continue;
        std::vector<std::pair<size_t, size_t>> stack{{root, 0}};
        state[root] = kOpen;
        while (!stack.empty()) {
            auto& [node, edge] = stack.back();
            if (edge < edges[node].size()) {
                const size_t next = edges[node][edge++];
                if (state[next] == kNew) {
                    state[next] = kOpen;
                    stack.emplace_back(next, 0);
                }
                continue;
            }
            for (const size_t dependency : edges[node]) {
                if (state[dependency] == kDone && depth[dependency] + 1 > depth[node]) {
                    depth[node] = depth[dependency] + 1;
                    deepest[node] = dependency;
                }
            }
            state[node] = kDone;
            stack.pop_back();
        }
    }

    std::vector<bool> covered(keys.size(), false);
    for (size_t node = 0; node < keys.size(); ++node) {
        if (depth[node] <= limit) continue;
        for (const size_t dependency : edges[node]) covered[dependency] = true;
    }
    std::vector<TaskKeyList> chains;
    for (size_t node = 0; node < keys.size(); ++node) {
        if (depth[node] <= limit || covered[node]) continue;
        TaskKeyList chain;
        for (size_t at = node; at != kNone; at = deepest[at]) chain.push_back(keys[at]);
        chains.push_back(std::move(chain));
    }
    return chains;
}
