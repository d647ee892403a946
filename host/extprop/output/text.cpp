#include "output/text.h"

#include <algorithm>

#include <android-base/strings.h>

#include "device/property_text.h"
#include "output/explained_lines.h"
#include "printable.h"

namespace extprop {

namespace {

using android::base::StartsWith;

// Log lines that every device causes, and the text for their number.
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

const UsualLines* FindUsual(const std::string& message) {
    for (const UsualLines& usual : Usual()) {
        for (const char* beginning : usual.beginnings) {
            if (StartsWith(message, beginning)) return &usual;
        }
    }
    return nullptr;
}

// Prints a step's events in their order, and counts those that get no line.
class EventPrinter {
  public:
    EventPrinter(const StepReport& step, bool verbose, Text* out) : verbose_(verbose), out_(*out) {
        for (const Event& event : step.events) {
            if (const auto* log = std::get_if<LogEvent>(&event)) ++times_[LogText(*log)];
        }
    }

    void operator()(const CallbackEvent& event) {
        out_ << "  given to init";
        if (event.mode != 0) out_ << " in mode " << event.mode;
        out_ << ": ";
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
        if (const UsualLines* usual = FindUsual(event.message); !verbose_ && usual != nullptr) {
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
        out_ << "  open for " << (event.for_writing ? "writing" : "reading") << " " << event.path
             << "\n";
    }
    void operator()(const LoadEvent& event) {
        if (!verbose_) return;
        out_ << "  load " << event.path;
        if (event.source) out_ << " (" << *event.source << ")";
        if (event.image) out_ << " (" << Name(*event.image) << ")";
        if (event.filter) out_ << ", only " << *event.filter;
        if (event.imported_by) out_ << ", imported by " << *event.imported_by;
        out_ << "\n";
    }
    void operator()(const LookUpEvent& event) {
        if (!verbose_) return;
        out_ << "  look up " << event.name << " in " << event.path << "\n";
    }
    void operator()(const MountEvent& event) {
        out_ << "  mount " << event.source << " on " << event.target << " ("
             << android::base::Join(event.flags, "|") << "): " << event.error.value_or("done")
             << "\n";
    }
    void operator()(const PropertyEvent& event) {
        out_ << "  property_set " << event.name << "=" << event.value << "\n";
    }
    void operator()(const RestoreconEvent& event) {
        out_ << "  restorecon " << event.path << (event.result == 0 ? "" : ": failed") << "\n";
    }
    void operator()(const LogoEvent& event) {
        out_ << "  logo: " << event.bytes << " bytes of " << event.source
             << " written to the splash partition\n";
    }
    void operator()(const RequestEvent& event) { out_ << "  request " << event.value << "\n"; }
    void operator()(const KeyEvent& event) {
        out_ << "  key " << event.name << "=" << event.value << "\n";
    }
    void operator()(const IdleEvent&) {}
    void operator()(const UnacknowledgedEvent& event) {
        out_ << "  request " << event.value << ": not acknowledged\n";
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
            out_ << (change.previous ? "    ~ " : "    + ") << change.name << "="
                 << handover.properties.at(change.name);
            if (change.previous) out_ << "  (was " << *change.previous << ")";
            out_ << "\n";
        }
        for (const Refusal& refusal : handover.refused) {
            out_ << "    ! " << refusal.name << "=" << refusal.value
                 << "  (init refuses it: " << refusal.reason << ")\n";
        }
    }

    static std::string LogText(const LogEvent& event) {
        return event.severity + " " + event.file + ":" + std::to_string(event.line) + ": " +
               event.message;
    }

    bool verbose_;
    Text& out_;
    std::map<const UsualLines*, size_t> usual_;
    std::map<std::string, size_t> times_;  // of log lines, by text, that are not yet printed
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

// Returns a text with the operation that loaded the line and did not hand it to init.
std::string WhyKept(const Origin& origin) {
    for (const std::string& operation : origin.operations) {
        // The loader itself is not the reason.
        if (!StartsWith(operation, "load_propert")) return ": " + operation + " keeps it";
    }
    return "";
}

std::string SideText(const DifferenceSide& side) {
    return side.origin ? side.value + "  (" + OriginText(*side.origin) + ")" : side.value;
}

}  // namespace

void PrintReport(const Report& report, bool verbose, std::ostream& out) {
    for (const StepReport& step : report.steps) {
        Text text;
        text << "== " << step.step;
        if (step.boot != 1) text << " (boot " << step.boot << ")";
        text << "\n";
        EventPrinter printer(step, verbose, &text);
        for (const Event& event : step.events) std::visit(printer, event);
        for (const FileEffect& file : step.files) {
            text << "  file " << file.change << ": " << file.path << "\n";
        }
        printer.PrintUsual();
        out << text.string() << "\n";
    }
    if (report.failure) return;
    out << "== properties\n";
    PrintProperties(report.properties, true, out);
}

bool IsUsual(const std::string& message) {
    return FindUsual(message) != nullptr;
}

std::string FailureText(const BootFailure& failure) {
    std::string text = "the library ";
    if (failure.limit) {
        text += "was stopped at a limit, " + *failure.limit + ",";
    } else if (failure.timed_out) {
        text += "did not return in time";
    } else if (!failure.signal) {
        text += "ended the process";
    } else {
        text += "crashed with " + *failure.signal;
    }
    text += " in step " + failure.step;
    if (failure.cycle.empty()) {
        if (failure.last_file) text += ", last loading " + *failure.last_file;
        return text;
    }
    text += ": the imports " + failure.cycle.front();
    for (size_t i = 1; i < failure.cycle.size(); ++i) text += " -> " + failure.cycle[i];
    return text + " form a cycle";
}

std::string FateText(const Origin& origin) {
    if (origin.fate == Fate::kWins) return "";
    std::string text = std::string("  [") + Name(origin.fate);
    if (origin.fate == Fate::kLookedUp && !origin.operations.empty()) {
        text += " by " + origin.operations.front();
    }
    if (origin.filter && origin.fate == Fate::kFilteredOut) text += " by " + *origin.filter;
    if (!origin.reason.empty()) return text + ": " + origin.reason + "]";
    if (origin.fate == Fate::kNotHandedOn) return text + WhyKept(origin) + "]";
    if (origin.did_not_load()) {
        if (origin.required) {
            text += "; it takes " + ShellWords(*origin.required);
        } else if (origin.tried > 0) {
            text += "; none of " + Count(origin.tried, "boot", "boots") + " loads it";
        }
    }
    return text + "]";
}

std::string ExplanationText(const Explanation& explanation, bool colours, bool verbose) {
    Text text;
    const auto colour = [&](const char* colour) {
        if (colours) text.Fixed(colour);
    };
    for (const ExplainedProperty& property : explanation.properties) {
        colour(kBold);
        text << property.name;
        colour(kPlain);
        if (property.value) {
            text << "=" << *property.value << "\n";
        } else {
            text << " is not set\n";
        }
        const std::vector<ExplainedLine> lines = LinesOf(property, verbose);
        std::vector<std::string> places;
        size_t width = 0;
        for (const ExplainedLine& line : lines) {
            places.push_back(line.origin == nullptr ? "" : Printable(OriginText(*line.origin)));
            width = std::max(width, places.back().size());
        }
        auto place = places.begin();
        for (const ExplainedLine& line : lines) {
            place->resize(width, ' ');
            if (line.origin == nullptr) {
                colour(kFaint);
                text << "    " << line.text;
                colour(kPlain);
                text << "\n";
                ++place;
                continue;
            }
            const Origin& origin = *line.origin;
            colour(ColourOf(origin));
            text << (origin.fate == Fate::kWins ? "  * " : "    ") << *place++ << "  "
                 << origin.value << FateText(origin);
            colour(kPlain);
            text << "\n";
        }
    }
    return text.string();
}

std::string DifferenceText(const Difference& difference) {
    Text text;
    for (const DifferentProperty& property : difference.removed) {
        text << "- " << property.name << "=" << SideText(*property.a) << "\n";
    }
    for (const DifferentProperty& property : difference.added) {
        text << "+ " << property.name << "=" << SideText(*property.b) << "\n";
    }
    for (const DifferentProperty& property : difference.changed) {
        text << "~ " << property.name << "\n    a: " << SideText(*property.a)
             << "\n    b: " << SideText(*property.b) << "\n";
    }
    if (difference.empty()) text << "no difference\n";
    return text.string();
}

}  // namespace extprop
