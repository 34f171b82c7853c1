// Choosing the settings-file form from the file name.
#include "settings/SettingsFile.h"

bool LoadSettingsFile(CTrimoraPreferences& prefs, const std::string& path, Log& log) {
    if (path.find(".tms") != std::string::npos) {
        if (!ReadDictSettings(prefs, path, log)) return false;
        prefs.RunFinishingSteps();
        return true;
    }
    // The XML reader runs the finishing steps itself after a good read.
    if (path.find(".tmc") != std::string::npos) return ReadXmlSettings(prefs, path, log);
    prefs.RunFinishingSteps();
    return true;
}
