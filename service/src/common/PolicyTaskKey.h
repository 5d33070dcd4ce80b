#pragma once

#include <string>
#include <utility>

// Names one task: (component identifier, task identifier). Ordered component
// first, then task, each compared byte-wise; the policy's task table and the
// task manager's tables are keyed by it.
using TaskKey = std::pair<std::string, std::string>;
