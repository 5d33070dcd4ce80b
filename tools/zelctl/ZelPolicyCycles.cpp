#include "ZelPolicyCycles.h"

#include <algorithm>
#include <deque>

namespace {

using Adjacency = std::vector<std::vector<int>>;

// Tarjan's strongly connected components, with an explicit stack so that a
// long dependency chain cannot exhaust the thread's stack.
std::vector<std::vector<int>> stronglyConnected(const Adjacency& edges) {
    const int count = static_cast<int>(edges.size());
    std::vector<int> index(count, -1), low(count, 0);
    std::vector<bool> onStack(count, false);
    std::vector<int> stack;
    std::vector<std::vector<int>> components;
    int nextIndex = 0;

    for (int root = 0; root < count; ++root) {
        if (index[root] >= 0) continue;
        std::vector<std::pair<int, size_t>> frames{{root, 0}};
        index[root] = low[root] = nextIndex++;
        stack.push_back(root);
        onStack[root] = true;
        while (!frames.empty()) {
            auto& [node, edge] = frames.back();
            if (edge < edges[node].size()) {
                const int next = edges[node][edge++];
                if (index[next] < 0) {
                    index[next] = low[next] = nextIndex++;
                    stack.push_back(next);
                    onStack[next] = true;
                    frames.emplace_back(next, 0);
                } else if (onStack[next]) {
                    low[node] = std::min(low[node], index[next]);
                }
                continue;
            }
            const int done = node;
            frames.pop_back();
            if (!frames.empty()) low[frames.back().first] = std::min(low[frames.back().first], low[done]);
            if (low[done] != index[done]) continue;
            std::vector<int> component;
            int member;
            do {
                member = stack.back();
                stack.pop_back();
                onStack[member] = false;
                component.push_back(member);
            } while (member != done);
            components.push_back(std::move(component));
        }
    }
    return components;
}

// Shortest way from `start` back to itself inside `members`.
std::vector<int> cycleThrough(int start, const std::vector<bool>& members, const Adjacency& edges) {
    std::vector<int> parent(edges.size(), -1);
    std::deque<int> queue{start};
    while (!queue.empty()) {
        const int node = queue.front();
        queue.pop_front();
        for (const int next : edges[node]) {
            if (!members[next]) continue;
            if (next == start) {
                std::vector<int> path{start};
                for (int at = node; at != start; at = parent[at]) path.push_back(at);
                std::reverse(path.begin() + 1, path.end());
                path.push_back(start);
                return path;
            }
            if (parent[next] < 0) {
                parent[next] = node;
                queue.push_back(next);
            }
        }
    }
    return {};
}

}  // namespace

ZelPolicyCycles::Numbered ZelPolicyCycles::number(const Graph& graph) {
    std::map<TaskKey, int> numbers;
    for (const auto& [key, allowList] : graph) {
        numbers.emplace(key, 0);
        for (const TaskKey& dependency : allowList) numbers.emplace(dependency, 0);
    }
    Numbered numbered;
    for (auto& [key, nodeNumber] : numbers) {
        nodeNumber = static_cast<int>(numbered.keys.size());
        numbered.keys.push_back(key);
    }
    numbered.edges.resize(numbered.keys.size());
    for (const auto& [key, allowList] : graph) {
        for (const TaskKey& dependency : allowList) {
            numbered.edges[numbers[key]].push_back(numbers[dependency]);
        }
    }
    return numbered;
}

std::vector<TaskKeyList> ZelPolicyCycles::find(const Graph& graph) {
    // Nodes are numbered in key order, so "smallest" means smallest key.
    const auto [keys, edges] = number(graph);

    std::vector<std::vector<int>> cyclic;
    for (auto& component : stronglyConnected(edges)) {
        const int first = *std::min_element(component.begin(), component.end());
        const bool selfLoop = std::find(edges[first].begin(), edges[first].end(), first) !=
                              edges[first].end();
        if (component.size() > 1 || selfLoop) cyclic.push_back(std::move(component));
    }
    std::sort(cyclic.begin(), cyclic.end(), [](const auto& a, const auto& b) {
        return *std::min_element(a.begin(), a.end()) < *std::min_element(b.begin(), b.end());
    });

    std::vector<TaskKeyList> cycles;
    std::vector<bool> members(keys.size(), false);
    for (const auto& component : cyclic) {
        for (const int node : component) members[node] = true;
        TaskKeyList cycle;
        for (const int node :
             cycleThrough(*std::min_element(component.begin(), component.end()), members, edges)) {
            cycle.push_back(keys[node]);
        }
        for (const int node : component) members[node] = false;
        cycles.push_back(std::move(cycle));
    }
    return cycles;
}
