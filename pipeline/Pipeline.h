// The per-document run: every enhancement in its fixed order of phases, the
// save, and the sizes the job summary reports.
#pragma once

#include <string>

#include "pdfcore/PDDoc.h"
#include "pipeline/Operations.h"

class CTrimoraPreferences;

namespace pipeline {

// Environment variable for tests of failed saves: when set to "1", the run
// writes the whole output to a temporary file beside the target, removes it
// and fails with "a file write error has occurred" instead of putting it in
// place, so a test can check that nothing the run was given got touched.
inline constexpr const char* kFailSaveVariable = "TRIMORA_TEST_FAIL_SAVE";

// Environment variables for tests of interrupted saves: a number N makes
// every write of the save wait N milliseconds, so that a signal can arrive
// part-way; "1" in the second makes the temporary file a named one, as on
// systems without unnamed temporary files.
inline constexpr const char* kSlowSaveVariable = "TRIMORA_TEST_SLOW_SAVE";
inline constexpr const char* kNamedTempVariable = "TRIMORA_TEST_NAMED_TEMP";

// Runs the phases on `doc`, saves it to `outputPath` and fills the ending
// size, percent and times in the settings' run statistics (the starting
// size must already be set).  Returns 0, or the core's code when saving
// failed.  Phase failures are logged and do not stop the run.  Uses the
// log of `prefs` (which must be set).
ASErrorCode Run(PDDoc doc, const std::string& outputPath, CTrimoraPreferences& prefs);
// The same with an explicit set of operations (tests use their own).
ASErrorCode Run(PDDoc doc, const std::string& outputPath, CTrimoraPreferences& prefs,
                const OperationRegistry& operations);

// Looks at the document's first output intent; when its DestOutputProfile
// is a CMYK, Gray or RGB ICC profile it becomes the settings' destination
// profile and the finishing steps run again.  Returns true when it did.
bool AdoptOutputIntent(PDDoc doc, CTrimoraPreferences& prefs);

// (starting - ending) * 100 / starting, and 0 for a starting size of 0.
double PercentShrunk(ASInt32 startingSize, ASInt32 endingSize);

}  // namespace pipeline
