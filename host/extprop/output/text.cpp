#include "output/text.h"

#include <algorithm>

#include <android-base/strings.h>

#include "device/property_text.h"
#include "output/printable.h"

namespace extprop {

namespace {

using android::base::StartsWith;

// Log lines that say what is usual, with what their number says.
struct UsualLines {
    std::vector<const char*> beginnings;
    const char* one;
    const char* many;
};

const std::vector<UsualLines>& Usual() {
    static const std::vector<UsualLines> usual = {
            {{"Couldn't load property file '"},
             "property file is not there or cannot be read",
             "property files are not there or cannot be read"},
            {{"Overriding previous 'ro.' property '"},
             "value replaced by a later file or line",
             "values replaced by later files or lines"},
            {{"partition property load failed:", "Loading property from ", "read nv_flag failed :"},
             nullptr,
             nullptr},
    };
    return usual;
}

const UsualLines* FindUsual(const LogEvent& log) {
    for (const UsualLines& usual : Usual()) {
        for (const char* beginning : usual.beginnings) {
            if (StartsWith(log.message, beginning)) return &usual;
        }
    }
    return nullptr;
}

// Prints a step's events as they come and counts what is not worth a line.
class EventPrinter {
  public:
    EventPrinter(const StepReport& step, bool verbose, std::ostream& out)
            : verbose_(verbose), out_(out) {
        for (const Event& event : step.events) {
            if (const auto* log = std::get_if<LogEvent>(&event)) ++times_[LogText(*log)];
        }
    }

    void operator()(const CallbackEvent& event) {
        out_ << "  callback mode " << event.mode << ": ";
        Print(event);
    }
    void operator()(const MapEvent& event) {
        out_ << "  map: ";
        Print(event);
    }
    void operator()(const StoredEvent& event) {
        out_ << "  stored: ";
        Print(event);
    }
    void operator()(const LogEvent& event) {
        const bool is_quiet = event.severity == "VERBOSE" || event.severity == "DEBUG" ||
                              event.severity == "INFO";
        if (!verbose_ && is_quiet) return;
        if (const UsualLines* usual = FindUsual(event); !verbose_ && usual != nullptr) {
            ++usual_[usual];
            return;
        }
        const std::string text = LogText(event);
        size_t& times = times_[text];
        if (!verbose_ && times == 0) return;
        out_ << "  " << text;
        if (!verbose_ && times > 1) out_ << "  (" << times << " times)";
        out_ << "\n";
        times = 0;
    }
    void operator()(const OpenEvent& event) {
        if (!verbose_) return;
        out_ << "  open for " << (event.for_writing ? "writing" : "reading") << " "
             << Printable(event.path) << "\n";
    }
    void operator()(const LoadEvent& event) {
        if (!verbose_) return;
        out_ << "  load " << Printable(event.path);
        if (event.source) out_ << " (" << Printable(*event.source) << ")";
        if (event.image) out_ << " (" << Printable(Name(*event.image)) << ")";
        if (event.filter) out_ << ", only " << Printable(*event.filter);
        if (event.imported_by) out_ << ", imported by " << Printable(*event.imported_by);
        out_ << "\n";
    }
    void operator()(const LookUpEvent& event) {
        if (!verbose_) return;
        out_ << "  look up " << Printable(event.name) << " in " << Printable(event.path) << "\n";
    }
    void operator()(const MountEvent& event) {
        out_ << "  mount " << Printable(event.source) << " on " << Printable(event.target) << " ("
             << android::base::Join(event.flags, "|") << "): " << event.error.value_or("done")
             << "\n";
    }
    void operator()(const PropertyEvent& event) {
        out_ << "  property_set " << Printable(event.name) << "=" << Printable(event.value) << "\n";
    }
    void operator()(const RestoreconEvent& event) {
        out_ << "  restorecon " << Printable(event.path) << (event.result == 0 ? "" : ": failed")
             << "\n";
    }
    void operator()(const LogoEvent& event) {
        out_ << "  logo: " << event.bytes << " bytes of " << Printable(event.source)
             << " written to the splash partition\n";
    }
    void operator()(const RequestEvent& event) {
        out_ << "  request " << Printable(event.value) << "\n";
    }
    void operator()(const UnacknowledgedEvent& event) {
        out_ << "  request " << Printable(event.value) << ": not acknowledged\n";
    }

    void PrintUsual() {
        for (const UsualLines& usual : Usual()) {
            const size_t count = usual_[&usual];
            if (usual.one == nullptr || count == 0) continue;
            out_ << "  " << Count(count, usual.one, usual.many) << " (--verbose lists "
                 << (count == 1 ? "it" : "them") << ")\n";
        }
    }

  private:
    void Print(const Handover& handover) {
        out_ << Count(handover.properties.size(), "property", "properties");
        const bool nothing = handover.changes.empty() && handover.refused.empty();
        if (nothing && !handover.properties.empty()) out_ << ", all set already";
        out_ << "\n";
        for (const Change& change : handover.changes) {
            out_ << (change.previous ? "    ~ " : "    + ") << Printable(change.name) << "="
                 << Printable(handover.properties.at(change.name));
            if (change.previous) out_ << "  (was " << Printable(*change.previous) << ")";
            out_ << "\n";
        }
        for (const Refusal& refusal : handover.refused) {
            out_ << "    ! " << Printable(refusal.name) << "=" << Printable(refusal.value)
                 << "  (init refuses it: " << refusal.reason << ")\n";
        }
    }

    static std::string LogText(const LogEvent& event) {
        return event.severity + " " + event.file + ":" + std::to_string(event.line) + ": " +
               Printable(event.message);
    }

    bool verbose_;
    std::ostream& out_;
    std::map<const UsualLines*, size_t> usual_;
    std::map<std::string, size_t> times_;  // of log lines that are still to be printed
};

constexpr char kGreen[] = "\033[1;32m";
constexpr char kYellow[] = "\033[33m";
constexpr char kFaint[] = "\033[2m";
constexpr char kBold[] = "\033[1m";
constexpr char kPlain[] = "\033[0m";

const char* ColourOf(const Origin& origin) {
    if (origin.fate == Fate::kWins) return kGreen;
    return origin.did_not_load() || origin.fate == Fate::kRefused ? kYellow : kFaint;
}

std::string Coloured(const std::string& text, const char* colour, bool colours) {
    return colours ? colour + text + kPlain : text;
}

// What became of a line, behind its value.
std::string FateText(const Origin& origin) {
    if (origin.fate == Fate::kWins) return "";
    std::string text = std::string("  [") + Name(origin.fate);
    if (origin.fate == Fate::kLookedUp && !origin.operations.empty()) {
        text += " by " + origin.operations.front();
    }
    if (origin.filter && origin.fate == Fate::kFilteredOut) text += " by " + *origin.filter;
    if (origin.did_not_load()) {
        text += origin.required ? "; it takes " + ShellWords(*origin.required)
                                : "; no step loads it";
    }
    return text + "]";
}

std::string SideText(const DifferenceSide& side) {
    std::string text = side.value;
    if (side.origin) text += "  (" + OriginText(*side.origin) + ")";
    return Printable(text) + "\n";
}

}  // namespace

void PrintReport(const Report& report, bool verbose, std::ostream& out) {
    if (verbose) out << "sandbox: " << report.way << "\n\n";
    for (const StepReport& step : report.steps) {
        out << "== " << Printable(step.step);
        if (step.boot != 1) out << " (boot " << step.boot << ")";
        out << "\n";
        EventPrinter printer(step, verbose, out);
        for (const Event& event : step.events) std::visit(printer, event);
        for (const FileEffect& file : step.files) {
            out << "  file " << file.change << ": " << Printable(file.path) << "\n";
        }
        printer.PrintUsual();
        out << "\n";
    }
    if (report.failure) return;
    out << "== properties\n";
    PrintProperties(report.properties, true, out);
}

std::string FailureText(const BootFailure& failure) {
    std::string text = "the library ";
    if (failure.timed_out) {
        text += "did not come back in time";
    } else if (!failure.signal) {
        text += "ended the process";
    } else {
        text += "crashed with " + *failure.signal;
    }
    text += " in step " + failure.step;
    if (failure.last_file) text += ", last loading " + Printable(*failure.last_file);
    return text;
}

std::string ShellWords(const std::vector<std::string>& words) {
    constexpr char kSafe[] =
            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_=./:@%+,";
    std::string text;
    for (const std::string& word : words) {
        if (!text.empty()) text += ' ';
        if (!word.empty() && word.find_first_not_of(kSafe) == std::string::npos) {
            text += word;
        } else {
            text += "'" + android::base::StringReplace(word, "'", "'\\''", true) + "'";
        }
    }
    return text;
}

std::string ExplanationText(const Explanation& explanation, bool colours) {
    std::string text;
    for (const ExplainedProperty& property : explanation.properties) {
        text += Coloured(Printable(property.name), kBold, colours) +
                (property.value ? "=" + Printable(*property.value) : " is not set") + "\n";
        std::vector<std::string> places;
        size_t width = 0;
        for (const Origin& origin : property.origins) {
            places.push_back(Printable(OriginText(origin)));
            width = std::max(width, places.back().size());
        }
        auto place = places.begin();
        for (const Origin& origin : property.origins) {
            place->resize(width, ' ');
            const std::string line = (origin.fate == Fate::kWins ? "  * " : "    ") + *place++ +
                                     "  " + Printable(origin.value) + Printable(FateText(origin));
            text += Coloured(line, ColourOf(origin), colours) + "\n";
        }
    }
    return text;
}

std::string DifferenceText(const Difference& difference) {
    std::string text;
    for (const DifferentProperty& property : difference.removed) {
        text += "- " + Printable(property.name) + "=" + SideText(*property.a);
    }
    for (const DifferentProperty& property : difference.added) {
        text += "+ " + Printable(property.name) + "=" + SideText(*property.b);
    }
    for (const DifferentProperty& property : difference.changed) {
        text += "~ " + Printable(property.name) + "\n    a: " + SideText(*property.a) +
                "    b: " + SideText(*property.b);
    }
    return text;
}

}  // namespace extprop
