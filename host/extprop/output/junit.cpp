#include "output/junit.h"

#include <stdio.h>
#include <time.h>

#include <map>
#include <set>
#include <vector>

#include "output/check_report.h"
#include "output/markup.h"
#include "output/source_root.h"
#include "output/text.h"

namespace extprop {

namespace {

std::string Attribute(const char* name, const std::string& value) {
    return std::string(" ") + name + "=\"" + Markup(value) + "\"";
}

std::string Attribute(const char* name, size_t value) {
    return Attribute(name, std::to_string(value));
}

std::string Seconds(double seconds) {
    char text[32];
    snprintf(text, sizeof(text), "%.3f", seconds);
    return text;
}

std::string Timestamp(std::chrono::system_clock::time_point at) {
    const time_t seconds = std::chrono::system_clock::to_time_t(at);
    tm utc;
    gmtime_r(&seconds, &utc);
    char text[32];
    strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &utc);
    return text;
}

// The suite of one file with expectations.
class Suite {
  public:
    Suite(const std::string& file, const CheckResult& result)
            : file_(PathInWorkTree(file)), result_(result) {}

    void Add(const CheckedCase& checked) {
        cases_.push_back(&checked);
        lines_.insert(checked.line);
    }

    std::string Text(size_t id, const std::string& timestamp) {
        std::string cases;
        for (const CheckedCase* checked : cases_) cases += CaseText(*checked);
        return "<testsuite" + Attribute("name", file_) + Attribute("package", "extprop") +
               Attribute("id", id) + Attribute("timestamp", timestamp) +
               Attribute("hostname", "localhost") + Attribute("tests", cases_.size()) +
               Attribute("failures", failures_) + Attribute("errors", errors_) +
               Attribute("time", Seconds(seconds_)) + ">\n<properties/>\n" + cases +
               "<system-out/>\n<system-err/>\n</testsuite>\n";
    }

  private:
    // Returns the expectation's name, or one made of its position: line numbers change too easily.
    std::string NameOf(const CheckedCase& checked) {
        if (!checked.expectation.empty()) return checked.expectation;
        const auto place = std::distance(lines_.begin(), lines_.find(checked.line));
        return "expectation " + std::to_string(place + 1);
    }

    std::string CaseText(const CheckedCase& checked) {
        const std::string name = SubjectText(result_, checked.variant);
        std::string group = file_ + ": " + NameOf(checked);
        const int count = ++equal_[group + "\n" + name];
        if (count > 1) group += " (" + std::to_string(count) + ")";
        seconds_ += checked.seconds;
        const std::string start = "<testcase" + Attribute("classname", group) +
                                  Attribute("name", name) + Attribute("file", file_) +
                                  Attribute("time", Seconds(checked.seconds));
        if (checked.unmet.empty()) return start + "/>\n";

        const bool has_failed = checked.unmet.front().failure.has_value();
        ++(has_failed ? errors_ : failures_);
        std::string message = UnmetText(checked.unmet.front());
        const size_t more = checked.unmet.size() - 1;
        if (more > 0) message += " (and " + std::to_string(more) + " more)";
        const std::string element = has_failed ? "error" : "failure";
        std::string content;
        for (const UnmetExpectation& unmet : checked.unmet) {
            content += "\n" + Markup(UnmetText(unmet));
        }
        return start + "><" + element + Attribute("type", has_failed ? "crash" : "unmet") +
               Attribute("message", message) + ">" + content + "\n</" + element + "></testcase>\n";
    }

    std::string file_;
    const CheckResult& result_;
    std::vector<const CheckedCase*> cases_;
    std::set<int> lines_;
    std::map<std::string, int> equal_;
    size_t failures_ = 0;
    size_t errors_ = 0;
    double seconds_ = 0;
};

}  // namespace

std::string JunitReport(const CheckResult& result, std::chrono::system_clock::time_point started) {
    std::vector<std::string> files;
    std::map<std::string, Suite> suites;
    for (const CheckedCase& checked : result.cases) {
        const auto [suite, is_new] = suites.try_emplace(checked.file, checked.file, result);
        if (is_new) files.push_back(checked.file);
        suite->second.Add(checked);
    }
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n";
    for (size_t id = 0; id < files.size(); ++id) {
        text += suites.at(files[id]).Text(id, Timestamp(started));
    }
    return text + "</testsuites>\n";
}

}  // namespace extprop
