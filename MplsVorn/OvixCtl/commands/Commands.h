#pragma once

#include "commands/CtlOptions.h"

namespace OvixCtl {

// Each carries out one command and returns its exit code. All throw UsageError for words that they
// do not understand and other exceptions for what cannot be done.

int showRoutes(const CtlOptions& options);
int loadRoutes(const CtlOptions& options);
int diffRoutes(const CtlOptions& options);
int watchRoutes(const CtlOptions& options);
int addRoute(const CtlOptions& options, bool mayReplace);
int deleteRoute(const CtlOptions& options);
int showCounters(const CtlOptions& options);
int clearCounters(const CtlOptions& options);
int printBashCompletion();

} // namespace OvixCtl
