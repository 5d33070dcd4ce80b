#pragma once

#include <string>

// Text of a valid policy document of the given size: `components`
// components with `tasksPerComponent` tasks each (the first "START_PROCESS",
// every fourth component auto-started), one rule per component whose last task
// depends on its first and publishes a start and a stop event, and event
// groups of 100 events each.
std::string generatePolicyDocument(int components, int tasksPerComponent, int eventGroups);
