// The operations of a run, as objects the phases apply.
//
// A PageOperation works on one page dictionary at a time; the per-page loop
// of its phase applies every enabled operation to every page.  A
// DocumentOperation works on the whole document at a fixed point of the run
// (stamping, imposition, resources after the page loop, image reduction,
// document clean-up).  New operations plug in by registering with the
// registry (see RegisterStandardOperations); the loops never change.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "pdfcore/PDDoc.h"
#include "pipeline/Statistics.h"

class CTrimoraPreferences;
class Log;

namespace pipeline {

// What an operation may use while it works.
struct RunContext {
    PDDoc doc;
    CTrimoraPreferences& prefs;
    Statistics stats;
    Log& log;
    ASInt32 pageNumber = -1;  // 0-based page being processed by the page loop
};

enum class PagePhase {
    PreLayout,   // before imposition: page boxes, page scaling, text stamps and watermarks
    PostLayout,  // after imposition: page clean-up and content work
};

class PageOperation {
public:
    virtual ~PageOperation() = default;
    virtual const char* Name() const = 0;
    virtual PagePhase Phase() const = 0;
    virtual bool Enabled(const CTrimoraPreferences& prefs) const = 0;
    // The operation's own failure message for a page, e.g.
    // "Error while rotating page 3"; by default built from Name().
    virtual std::string FailureMessage(ASInt32 pageNumber) const;
    virtual void Apply(CosObj page, RunContext& ctx) = 0;
};

enum class DocumentPoint {
    Stamping,        // before the pre-layout page loop
    Layout,          // imposition (only when the layout section is enabled)
    PostLayout,      // after the post-layout page loop: resources, fonts
    ImageReduction,  // only when image reduction is configured
    DocumentCleanup, // after the post-layout phase
};

class DocumentOperation {
public:
    virtual ~DocumentOperation() = default;
    virtual const char* Name() const = 0;
    virtual DocumentPoint Point() const = 0;
    virtual bool Enabled(const CTrimoraPreferences& prefs) const = 0;
    virtual std::string FailureMessage() const;
    virtual void Apply(RunContext& ctx) = 0;
};

// The operations of a run in the order they were added.
class OperationRegistry {
public:
    void Add(std::unique_ptr<PageOperation> op) { m_page.push_back(std::move(op)); }
    void Add(std::unique_ptr<DocumentOperation> op) { m_doc.push_back(std::move(op)); }
    // The enabled operations of one phase or point, in registration order.
    std::vector<PageOperation*> PageOperations(PagePhase phase, const CTrimoraPreferences& prefs) const;
    std::vector<DocumentOperation*> DocumentOperations(DocumentPoint point,
                                                       const CTrimoraPreferences& prefs) const;
    size_t Size() const { return m_page.size() + m_doc.size(); }

private:
    std::vector<std::unique_ptr<PageOperation>> m_page;
    std::vector<std::unique_ptr<DocumentOperation>> m_doc;
};

// Adds every operation the program has, in the order the phases run them.
// Each new operation adds one line here (StandardOperations.cpp).
void RegisterStandardOperations(OperationRegistry& registry);

// The per-page loop: for every page, "Processing Page %d\n" (from 1) on the
// Progress channel, then each operation.  An operation that raises is logged
// with its own message and the core's text; the loop goes on with the next
// operation.  Returns the number of failed applications.
int RunPageLoop(const std::vector<PageOperation*>& ops, RunContext& ctx);

// Applies document operations one by one, each guarded like a page operation.
int RunDocumentOperations(const std::vector<DocumentOperation*>& ops, RunContext& ctx);

}  // namespace pipeline
