// The report printed after a document with -report: what the run did, in a
// fixed order of lines built from the statistics and a few settings.
#pragma once

#include <boost/format.hpp>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "base/ASError.h"
#include "pipeline/Statistics.h"

class CTrimoraPreferences;
class Log;

namespace pipeline {

// What the report needs from the settings.  The viewing entries say which
// initial-view settings the run applied (the same tests the finalisation
// uses; see FinalisationPlan in Finalisation.h).
struct ReportInputs {
    bool linearize = false;
    bool encrypt = false;
    ASInt32 keyLength = 40;
    bool userPassword = false;
    bool ownerPassword = false;
    ASUns16 securityWord = 0;
    std::vector<std::pair<std::string, std::string>> metadata;
    bool pageMode = false;
    bool pageLayout = false;
    bool openDestination = false;
    ASInt32 startingPage = 0;  // 0: not set
    bool hideToolbar = false;
    bool hideMenubar = false;
    bool hideWindowUI = false;
    bool fitWindow = false;
    bool centerWindow = false;
};

// Collects report lines with numbered placeholders until the first
// formatting failure; every later line is dropped, so the report ends where
// it failed and the lines before it stand.
class ReportWriter {
public:
    explicit ReportWriter(const std::string& indent) : m_indent(indent) {}

    template <typename... Args>
    void Line(int depth, const char* format, const Args&... args) {
        if (m_failed) return;
        try {
            boost::format f(format);
            if constexpr (sizeof...(Args) > 0) (f % ... % args);
            std::string text = f.str();
            for (int i = 0; i < depth; ++i) m_text += m_indent;
            m_text += text;
        } catch (const std::exception&) {
            m_failed = true;
        }
    }

    bool Failed() const { return m_failed; }
    const std::string& Text() const { return m_text; }

private:
    std::string m_indent;
    std::string m_text;
    bool m_failed = false;
};

ReportInputs ReportInputsFromPreferences(const CTrimoraPreferences& prefs);

// The report lines, each prefixed by `indent` (sub-lines by two indents).
// When a line cannot be formatted the lines before it are returned and
// `formatFailed` (optional) is set.
std::string BuildReport(const ReportInputs& in, const Statistics& stats, const std::string& indent,
                        bool* formatFailed = nullptr);

// Writes the report to the Info channel; a formatting failure ends it with
// "Problem with boost::format\n".
void WriteReport(const CTrimoraPreferences& prefs, const Statistics& stats,
                 const std::string& indent, Log& log);

}  // namespace pipeline
