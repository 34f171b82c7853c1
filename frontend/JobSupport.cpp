#include "frontend/JobSupport.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cmath>

#include "base/Log.h"
#include "pdfcore/AtomicFile.h"
#include "pipeline/Report.h"
#include "pipeline/Statistics.h"
#include "settings/TrimoraPreferences.h"

namespace jobs {
namespace {

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

}  // namespace

bool IsDirectory(const std::string& path) {
    struct stat st {};
    return !path.empty() && stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

ASInt32 FileSizeOrRaise(const std::string& path) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) ASRaiseErr(ErrSysFile, kErrFileNotFound);
    return st.st_size > INT32_MAX ? INT32_MAX : ASInt32(st.st_size);
}

void WarnIfHardLinked(const std::string& outputPath, Log& log) {
    struct stat st {};
    if (stat(outputPath.c_str(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_nlink < 2) return;
    log.Warning("Warning: %s has %lu other hard link(s); they keep the original content, as only this name "
                "receives the optimised file\n",
                outputPath.c_str(), static_cast<unsigned long>(st.st_nlink - 1));
}

void CopyFileOver(const std::string& source, const std::string& target) {
    struct stat a {}, b {};
    if (stat(source.c_str(), &a) == 0 && stat(target.c_str(), &b) == 0 && a.st_dev == b.st_dev &&
        a.st_ino == b.st_ino)
        return;
    const int in = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) ASRaiseErr(ErrSysFile, kErrFileNotFound);
    try {
        CosTempFile out(target);
        char buf[1 << 16];
        for (;;) {
            const ssize_t n = ::read(in, buf, sizeof buf);
            if (n < 0) ASRaiseErr(ErrSysFile, kErrFileRead);
            if (n == 0) break;
            for (ssize_t done = 0; done < n;) {
                const ssize_t w = ::write(out.Fd(), buf + done, size_t(n - done));
                if (w <= 0) ASRaiseErr(ErrSysFile, kErrFileWrite);
                done += w;
            }
        }
        out.Commit();
    } catch (...) {
        ::close(in);
        throw;
    }
    ::close(in);
}

JobTally& Tally() {
    static JobTally tally;
    return tally;
}

void CountResult(ASErrorCode result) {
    if (result == 0) ++Tally().written;
    else ++Tally().failed;
}

std::string OutputNameFor(const std::string& outputOption, const std::string& input) {
    if (!IsDirectory(outputOption)) return outputOption;
    const size_t sep = input.find_last_of("/\\");
    if (sep == std::string::npos) return outputOption;  // the kept quirk: the directory alone
    std::string dir = outputOption;
    while (dir.size() > 1 && IsSeparator(dir.back())) dir.pop_back();
    return dir + "/" + input.substr(sep + 1);
}

std::string PdfNameForImage(const std::string& outputPath) {
    const size_t sep = outputPath.find_last_of("/\\");
    const size_t nameStart = sep == std::string::npos ? 0 : sep + 1;
    const size_t dot = outputPath.rfind('.');
    if (dot == std::string::npos || dot < nameStart) return outputPath + ".pdf";
    return outputPath.substr(0, dot) + ".pdf";
}

std::string JoinPath(const std::string& dir, const std::string& name) {
    if (dir.empty() || name.empty() || IsSeparator(name.front())) return name;
    return IsSeparator(dir.back()) ? dir + name : dir + "/" + name;
}

void PrintSummary(CTrimoraPreferences& prefs, const JobTimer& timer, bool report, Log& log) {
    const CRunStatistics& run = prefs.Statistics();
    if (run.startingSize != 0) {
        log.Info("   starting size  = %s\n", SizeText(run.startingSize).c_str());
        log.Info("   ending size    = %s\n", SizeText(run.endingSize).c_str());
        if (run.percent >= 0)
            log.Info("   percent shrunk = %.1f%%\n", run.percent);
        else
            log.Info("   percent grown  = %.1f%%\n", std::fabs(run.percent));
        if (run.keptInput) log.Info("   input kept     : the optimised file would have been larger\n");
        log.Info("\n");
    }
    log.Info("   elapsed time   : %s\n", DurationText(timer).c_str());
    log.Info("\n");
    if (report) {
        log.Info("Trimora accomplished the following:\n");
        pipeline::WriteReport(prefs, pipeline::Statistics(prefs.StatisticsDict()), "   ", log);
        log.Info("\n");
    }
}

}  // namespace jobs
