// Reading and writing settings files.
//
// Two forms exist, chosen by the file name: the dictionary form (".tms", one
// PDF dictionary in PDF object syntax, read only) and the XML form (".tmc",
// document element `trimora`, read and written).  Readers catch every
// exception, log it and report failure; the settings keep what was read up to
// the failure.  Values out of range and unknown words keep the setting's
// previous value and log a Warning line naming the setting.
#pragma once

#include <string>

#include "settings/TrimoraPreferences.h"
#include "settings/domLite/domLite.h"

class Log;

// Reads a settings file the way the -f option asks: ".tms" anywhere in the
// name selects the dictionary form, else ".tmc" anywhere the XML form, else
// nothing is read.  The finishing steps run after a successful read or when
// nothing is read; the result is false only when a read failed.
bool LoadSettingsFile(CTrimoraPreferences& prefs, const std::string& path, Log& log);

// XML form.  A successful read ends with "Initializing Settings...\n" and the
// finishing steps.
bool ReadXmlSettings(CTrimoraPreferences& prefs, const std::string& path, Log& log);
// Applies an already parsed document (the same checks and messages, without
// the "Reading settings" line).  Throws on a bad number; the caller catches.
void ApplyXmlSettings(CTrimoraPreferences& prefs, const domLite::document& doc, Log& log);
// Builds the whole target in section order.
domLite::document BuildXmlSettings(const CTrimoraPreferences& prefs);
bool WriteXmlSettings(const CTrimoraPreferences& prefs, const std::string& path, Log& log);

// Dictionary form (no finishing steps: LoadSettingsFile runs them).
bool ReadDictSettings(CTrimoraPreferences& prefs, const std::string& path, Log& log);
// Applies the dictionary text itself; throws on bad syntax.
void ApplyDictSettingsText(CTrimoraPreferences& prefs, const std::string& text, Log& log);
