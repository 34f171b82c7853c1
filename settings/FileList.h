// File lists: an XML document (document element `trimFileList`) naming the
// input files of a job, with per-file page selections, and whether the files
// are merged into one output.
//
// Page numbers in `pageRange` count from 1; 0 reads as the first page, so the
// default "0-" selects every page.  A piece is "n", "a-b" or "a-" (to the
// last page); pieces are separated by commas and kept in the order written.
// Pages past the document's last page are dropped, and a range a-b with a > b
// runs backwards.
#pragma once

#include <string>
#include <vector>

#include "base/ASError.h"
#include "settings/domLite/domLite.h"

class Log;

enum FileListRangeType : ASInt32 { kRangeAll = 0, kRangeEven = 1, kRangeOdd = 2 };

struct FileListPageRange {
    ASInt32 from = 0;
    ASInt32 to = -1;  // -1: to the last page
    bool operator==(const FileListPageRange&) const = default;
};

struct FileListEntry {
    std::string src;
    std::vector<FileListPageRange> ranges{FileListPageRange{}};  // "0-"
    FileListRangeType rangeType = kRangeAll;
    std::string box = " MediaBox";  // the leading blank is deliberate
    std::string password;
    std::string output;
};

struct FileList {
    bool merge = false;
    std::string outputDir;
    std::vector<FileListEntry> entries;
};

// Reads a file list; on any failure logs "An error ('%s') occured while
// reading the file list\n" and returns false.
bool ReadFileList(const std::string& path, FileList& list, Log& log);
// Fills `list` from a parsed document; throws on a bad page range.
void ApplyFileList(const domLite::document& doc, FileList& list);
// Splits a page-range text; throws std::runtime_error on a piece that is not
// a number.
std::vector<FileListPageRange> ParsePageRange(const std::string& text);
// The 0-based page numbers that `ranges` and `type` select in a document of
// `pageCount` pages, in range order.  Even and odd refer to 1-based numbers.
std::vector<ASInt32> SelectPages(const std::vector<FileListPageRange>& ranges, FileListRangeType type,
                                 ASInt32 pageCount);
