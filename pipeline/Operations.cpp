#include "pipeline/Operations.h"

#include <exception>

#include "base/Log.h"

namespace pipeline {

std::string PageOperation::FailureMessage(ASInt32 pageNumber) const {
    return std::string("Error while performing ") + Name() + " on page " + std::to_string(pageNumber);
}

std::string DocumentOperation::FailureMessage() const {
    return std::string("Error while performing ") + Name();
}

std::vector<PageOperation*> OperationRegistry::PageOperations(PagePhase phase,
                                                              const CTrimoraPreferences& prefs) const {
    std::vector<PageOperation*> out;
    for (const auto& op : m_page)
        if (op->Phase() == phase && op->Enabled(prefs)) out.push_back(op.get());
    return out;
}

std::vector<DocumentOperation*> OperationRegistry::DocumentOperations(
    DocumentPoint point, const CTrimoraPreferences& prefs) const {
    std::vector<DocumentOperation*> out;
    for (const auto& op : m_doc)
        if (op->Point() == point && op->Enabled(prefs)) out.push_back(op.get());
    return out;
}

int RunPageLoop(const std::vector<PageOperation*>& ops, RunContext& ctx) {
    int failures = 0;
    if (ops.empty()) return 0;
    // Operations may add or remove pages of their own (none do yet), so the
    // count is read afresh for every page.
    for (ASInt32 i = 0; i < PDDocGetNumPages(ctx.doc); ++i) {
        ctx.log.Progress("Processing Page %d\n", int(i + 1));
        CosObj page = PDDocGetPageObj(ctx.doc, i);
        ctx.pageNumber = i;
        for (PageOperation* op : ops) {
            try {
                op->Apply(page, ctx);
            } catch (const CVellumError& e) {
                ++failures;
                ctx.log.ReportError(e.GetErrorCode(), op->FailureMessage(i + 1).c_str());
            }
        }
    }
    ctx.pageNumber = -1;
    return failures;
}

int RunDocumentOperations(const std::vector<DocumentOperation*>& ops, RunContext& ctx) {
    int failures = 0;
    for (DocumentOperation* op : ops) {
        try {
            op->Apply(ctx);
        } catch (const CVellumError& e) {
            ++failures;
            ctx.log.ReportError(e.GetErrorCode(), op->FailureMessage().c_str());
        }
    }
    return failures;
}

}  // namespace pipeline
