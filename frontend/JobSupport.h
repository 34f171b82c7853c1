// Pieces the job runners share: output names, file sizes, the job timer and
// the summary printed after each output.
#pragma once

#include <string>

#include "base/Formatters.h"
#include "base/ASError.h"

class CTrimoraPreferences;
class Log;

namespace jobs {

// True when `path` names an existing directory.
bool IsDirectory(const std::string& path);

// The size of a file in bytes (clamped to the 32-bit range of the
// summary); raises the core's file error when it cannot be measured.
ASInt32 FileSizeOrRaise(const std::string& path);

// The output path for `input` when -o (`outputOption`, non-empty) is given.
// For an existing directory it is the directory followed by the input's part
// from its last separator on, separator included; "/" and "\" both count
// as separators, and the part is written with "/".  An input without any
// separator contributes nothing: the output path is then the directory
// itself (which cannot be written over, so such a job fails; name the input
// as ./a.pdf).  Otherwise the output path is the option as it stands.
std::string OutputNameFor(const std::string& outputOption, const std::string& input);

// The output path of an image input: the extension (from the last "." of the
// file-name part) replaced by ".pdf", or ".pdf" appended when the file name
// has no ".".
std::string PdfNameForImage(const std::string& outputPath);

// Joins a directory and a relative name (an absolute name stays as it is).
std::string JoinPath(const std::string& dir, const std::string& name);

// Before `outputPath` is replaced: when it is a file with other hard links,
// warns that those names keep the old content (the new file is a new inode
// under this one name; see "Replacing files in place" in the README).
void WarnIfHardLinked(const std::string& outputPath, Log& log);

// Replaces `target` (through its links, atomically) with the bytes of
// `source`; nothing when both name the same file.  Raises the core's file
// errors.
void CopyFileOver(const std::string& source, const std::string& target);

// What the inputs of a run came to, for the strict exit status.
struct JobTally {
    int written = 0;  // outputs saved
    int failed = 0;   // inputs that gave no output
};
// The run's tally (one per process: the program runs one job at a time).
JobTally& Tally();
// Counts one input: written when `result` is 0, failed otherwise.
void CountResult(ASErrorCode result);

// The job's own timer, from the millisecond clock.
struct JobClock {
    JobTimer timer;
    void Start() { TimerStart(timer); }
    void Stop() { TimerStop(timer); }
};

// The summary lines on the Info channel: sizes and percent (when the
// starting size is not 0), elapsed time, and with `report` the report of
// what was done, indented by three blanks.
void PrintSummary(CTrimoraPreferences& prefs, const JobTimer& timer, bool report, Log& log);

}  // namespace jobs
