// The document information dictionary: PDF dates and the entries the core
// sets when it creates the dictionary.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

#include "pdfcore/CosObj.h"

// "D:%4d%02d%02d%02d%02d%02d%c%02d'00'" from a broken-down time and the
// offset of that time from universal time in seconds: the sign character is
// '+' when ahead, 'Z' when equal, '-' when behind, followed by the whole
// hours of the offset (minutes are always written as '00').
std::string CosInfoFormatDate(const std::tm& when, long utcOffsetSeconds);

// The time every date written by the core uses: SOURCE_DATE_EPOCH when the
// environment holds a valid number of seconds (then `reproducible` is set
// and the time is taken as universal time), else the clock.
time_t CosInfoNow(bool* reproducible = nullptr);
// True when SOURCE_DATE_EPOCH asks for reproducible output.
bool CosInfoReproducible();

// The current date as a PDF date: local time with its offset, or universal
// time ("Z00'00'") under SOURCE_DATE_EPOCH.
std::string CosInfoCurrentDate();

// The document's information dictionary, created when the trailer has none:
// a new indirect dictionary with CreationDate and ModDate set to the current
// date and Producer and Creator set to "Vellum", referenced from the
// trailer's Info.  An existing dictionary is returned unchanged.
CosObj CosDocSetupInfo(CosDoc doc);
