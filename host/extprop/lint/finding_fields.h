// The JSON fields of lint's findings. Only a KnownFinding can be read from them: the others are
// written without what a document does not need.

#pragma once

#include "boot/report_fields.h"
#include "lint/lint.h"

namespace extprop {

template <typename Fields>
void Visit(Fields& fields, KnownFinding& finding) {
    fields("fingerprint", finding.fingerprint)("identifier", finding.identifier)(
            "path", finding.path)("text", finding.text);
}

template <typename Fields>
void Visit(Fields& fields, LinePlace& place) {
    fields("file", place.file)("line", place.line);
}

template <typename Fields>
void Visit(Fields& fields, Finding& finding) {
    std::string severity = SeverityName(finding.severity);
    fields("file", finding.file)("line", finding.line)("severity", severity)(
            "identifier", finding.identifier)("message", finding.message)("image", finding.image)(
            "fingerprint", finding.fingerprint)("others", finding.others);
}

template <typename Fields>
void Visit(Fields& fields, LintReport& report) {
    fields("findings", report.findings)("notes", report.notes)("known", report.known)("fixed",
                                                                                      report.fixed);
}

}  // namespace extprop
