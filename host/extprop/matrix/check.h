// Compares the variants of a device with the expectations.

#pragma once

#include <stdint.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "compare/phone_variant.h"
#include "coverage/survey.h"
#include "matrix/expectations.h"

namespace extprop {

// An expectation that a variant does not meet.
struct UnmetExpectation {
    std::string file;
    int line = 0;
    std::string expectation;  // the expectation's name, if it has one
    Variant variant;
    std::string property;              // empty if the boot failed or the device has no such variant
    std::string expected;              // as ExpectedText() describes it, or what else was expected
    std::optional<std::string> value;  // none: unset
    OriginDocument origin;             // of the value; null if it is not known
    std::optional<BootFailure> failure;  // then nothing else was compared
};

// One expectation for one variant.
struct CheckedCase {
    std::string file;
    int line = 0;
    std::string expectation;
    Variant variant;
    std::vector<UnmetExpectation> unmet;
    double seconds = 0;  // of the boot, counted in its first case only
};

// A phone whose own values are compared with the expectations on its variant.
struct CheckedPhone {
    const PropertyMap& properties;
    PhoneVariant is;
};

struct CheckResult {
    std::optional<std::string> phone;  // whose values were checked: the name that the user gave
    size_t variants = 0;               // booted
    size_t checked = 0;                // comparisons of a value with one condition
    std::vector<CheckedCase> cases;
    std::vector<std::string> notes = {};  // what may be a mistake in the expectations
};

// Checks one file of expectations: make a Checker, boot its variants(), pass the outcome of each to
// Add(), and then call Finish() once.
class Checker {
  public:
    // All arguments must outlive this. Without a phone the device's own values are checked. Throws
    // InputError if the expectations concern more than limits::kVariants variants or there is more
    // to report than limits::kChecked.
    Checker(const Expectations& expectations, Matrix* matrix, const CheckedPhone* phone = nullptr);

    // Returns the variants to boot, which are those that the expectations concern; with a phone at
    // most its variant, and none if no expectation is about it.
    const std::vector<Variant>& variants() const { return variants_; }

    // Compares the outcome of the variant with this index in variants() with the expectations. Call
    // it once for each, in any order. A boot that failed meets no expectation. Throws InputError if
    // there is more to report, or to match with regular expressions, than the limits allow.
    void Add(size_t number, const Outcome& outcome);

    // Boots again for the origins that are reported or expected, and adds all results to `*result`,
    // in which those of other files may be already. Throws InputError, with file and line, if a
    // value is expected from a file that the device does not have; and as Matrix::Trace and
    // TakeSurvey do.
    void Finish(CheckResult* result);

  private:
    struct FromFile {
        size_t place;  // the index of its case
        UnmetExpectation unmet;
        const Expected* expected;
    };

    // Counts the bytes of what will be reported. Throws InputError above the limit.
    void Keep(const std::string& text);
    void AddUnmet(const UnmetExpectation& unmet, CheckedCase* checked);
    void FindOrigins();
    void CheckFiles() const;
    Survey SurveyOf(const std::optional<std::set<std::string>>& names) const;
    std::vector<std::string> FindNeverSet() const;

    const Expectations& expectations_;
    Matrix* matrix_;
    const CheckedPhone* phone_;
    std::map<Variant, std::vector<const Expectation*>, VariantOrder> asked_;
    std::vector<Variant> variants_;
    std::vector<std::vector<CheckedCase>> cases_;  // by variant
    std::vector<CheckedCase> missing_;  // of values of axes that the device does not have
    std::map<size_t, std::set<std::string>> traced_;
    std::map<size_t, std::vector<FromFile>> from_;
    std::set<const Expected*> met_;  // of expectations on files
    std::set<std::string> unseen_;   // properties expected to be unset that no boot had
    size_t checked_ = 0;
    size_t kept_ = 0;
    uint64_t matching_ = 0;
};

}  // namespace extprop
