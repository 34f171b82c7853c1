// Feeds arbitrary bytes through the XML layer and everything built on it:
// the settings reader, the file-list reader and the writer.  Any input must
// end in a result or a caught exception, never in a crash or a hang.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>

#include "base/Log.h"
#include "settings/FileList.h"
#include "settings/SettingsFile.h"
#include "settings/domLite/domLite.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Log* log = [] {
        auto* l = new Log();
        l->SetConsoleQuiet(true);
        l->SetFileLoggingAllowed(false);
        return l;
    }();
    domLite::document doc;
    try {
        doc = domLite::parser().parse_buffer(reinterpret_cast<const char*>(data), size);
    } catch (const domLite::parse_exception&) {
        return 0;
    }
    try {
        CTrimoraPreferences prefs;
        ApplyXmlSettings(prefs, doc, *log);
        prefs.RunFinishingSteps();
        (void)BuildXmlSettings(prefs).to_string();
    } catch (const std::exception&) {
    }
    try {
        FileList list;
        ApplyFileList(doc, list);
        for (const FileListEntry& e : list.entries) (void)SelectPages(e.ranges, e.rangeType, 1000);
    } catch (const std::exception&) {
    }
    (void)doc.to_string();
    return 0;
}
