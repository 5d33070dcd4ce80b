#pragma once

#include "ZelctlCommand.h"

// The commands that talk to the daemon or stand in for its neighbours, one
// file each (ZelctlStartCommand.cpp, ...).
const ZelctlCommand& zelctlStartCommand();
const ZelctlCommand& zelctlStartedCommand();
const ZelctlCommand& zelctlCompletedCommand();
const ZelctlCommand& zelctlWaitCommand();
const ZelctlCommand& zelctlWatchCommand();
const ZelctlCommand& zelctlMemoryCommand();
const ZelctlCommand& zelctlPropsCommand();
const ZelctlCommand& zelctlDumpCommand();
