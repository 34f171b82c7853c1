// The program's main routine: log, command line, core start and shutdown,
// and the final "Error during processing" line.  The jobs themselves
// (settings, the command-line, merge and list jobs) run in RunJobs.
#pragma once

#include "frontend/CommandLine.h"
#include "base/Log.h"
#include "base/ASError.h"

// Runs the whole program; returns the process exit status: 1 when the
// usage was printed, 0 otherwise, unless the environment asks for the
// strict status (below).
int RunTrimora(int argc, char** argv);

// With this variable set to "1", a run that printed no usage ends with 2
// when any input failed (no output came of it), with 3 when every input was
// written but warnings or errors were logged on the way, and with 0
// otherwise.
inline constexpr const char* kStrictExitVariable = "TRIMORA_STRICT_EXIT";
bool StrictExitRequested();
int StrictExitStatus(bool anyFailed, bool anyWarning);

// Builds the settings and runs the jobs the parsed command line asks for.
// Called with the core started; core errors may escape as CVellumError.
// Returns the job result: 0 or a core error code.
ASErrorCode RunJobs(const CommandLineOptions& options, Log& log);

// Control-record flags for the core taken from the environment variable
// TRIMORA_VELLUM_FLAGS (decimal, or hex with 0x); 0 when unset or malformed.
unsigned VellumFlagsFromEnvironment();
