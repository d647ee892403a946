// The rules of lint in words, as docs/lint.md has them.

#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "lint/lint.h"

namespace extprop {

struct Rule {
    const char* identifier;
    Severity severity;
    const char* finds;  // these three are Markdown without the final full stop
    const char* why;
    const char* mend;
    // Files of a device: a line for each path, followed by the file's lines, each after four
    // blanks. A path with "/" at its end is a directory, " -> " makes a link, and ", 2 MiB" gives a
    // size. "\0", "\r" and "\xfc" stand for these bytes.
    const char* bad;   // where the rule finds something
    const char* good;  // where no rule finds anything
};

inline constexpr Rule kRules[] = {
        {"import-cycle", Severity::kError, "Imports that lead back to a file that they come from",
         "The loader recurses until the stack ends: the phone does not boot",
         "Delete the import on the reported line; or, if it must stay, give it a filter: the "
         "loader does not follow the imports of a file that it loads with a filter",
         R"(/odm/build.prop
    import /odm/etc/radio.prop
/odm/etc/radio.prop
    ro.radio.tuning=wide
    import /odm/build.prop)",
         R"(/odm/build.prop
    import /odm/etc/radio.prop
/odm/etc/radio.prop
    ro.radio.tuning=wide)"},
        {"missing-import", Severity::kError, "An import whose path is not a file of the device",
         "The loader skips the import and logs a line",
         "Correct the name, or add the file; names are absolute paths of the device",
         R"(/odm/build.prop
    import /odm/etc/raido.prop
/odm/etc/radio.prop)",
         R"(/odm/build.prop
    import /odm/etc/radio.prop
/odm/etc/radio.prop)"},
        {"missing-variant", Severity::kWarning,
         "An import with references that leads to a file in some boots of the device and to none "
         "in others. Only a phone's boot loader sets `ro.boot.*`: where an import refers to such "
         "a property, lint tries it unset and with each value that a file of the device gives it",
         "A phone without the file skips the import",
         "Add the file for the value, or a default that exists",
         R"(/mnt/vendor/my_product/cust/IN/build.prop
    ro.sample.board=beta
/data/system/customize/empty_appchannel_prop_file.prop
    import /odm/etc/${ro.sample.board:-alpha}.prop
/odm/etc/alpha.prop)",
         R"(/mnt/vendor/my_product/cust/IN/build.prop
    ro.sample.board=beta
/data/system/customize/empty_appchannel_prop_file.prop
    import /odm/etc/${ro.sample.board:-alpha}.prop
/odm/etc/alpha.prop
/odm/etc/beta.prop)"},
        {"malformed-reference", Severity::kError,
         "A `${` without `}`, a reference without a name, or the old form without braces",
         "The library refuses the name, so the import is skipped",
         "Write `${name}` or `${name:-default}`; `$$` stands for a `$`",
         R"(/odm/build.prop
    import /odm/etc/$ro.boot.board.prop
/odm/etc/alpha.prop)",
         R"(/odm/build.prop
    import /odm/etc/${ro.boot.board:-alpha}.prop
/odm/etc/alpha.prop)"},
        {"unset-reference", Severity::kWarning,
         "A reference without a default, to a property that no file of the device sets",
         "Unless the property comes from elsewhere (the boot loader, the persistent store), the "
         "import is skipped",
         "Give a default: `${name:-default}`; or make sure that the property is set before the "
         "import is read",
         R"(/odm/build.prop
    import /odm/etc/${ro.boot.board}.prop
/odm/etc/alpha.prop)",
         R"(/odm/build.prop
    import /odm/etc/${ro.boot.board:-alpha}.prop
/odm/etc/alpha.prop)"},
        {"late-reference", Severity::kWarning,
         "A reference in an import to a property that is still unset in every boot that reaches "
         "the import, though a file sets it later",
         "References are resolved from the system's properties, and what a step loads is added to "
         "these only when the step is done: the import takes the default, or is skipped",
         "Name the file itself; or set the property in a `build.prop`, if the import is in a file "
         "of a switch key, or before the first step (`ro.boot.*`)",
         R"(/odm/build.prop
    ro.sample.board=beta
    import /odm/etc/${ro.sample.board:-alpha}.prop
/odm/etc/alpha.prop
/odm/etc/beta.prop)",
         R"(/odm/build.prop
    ro.sample.board=beta
    import /odm/etc/beta.prop
/odm/etc/beta.prop)"},
        {"idle-filter", Severity::kError,
         "An import with a filter that no line of the imported file passes",
         "Nothing is loaded. All that follows the file's name is the filter, even what looks like "
         "a comment",
         "Write the whole name of one property, or its beginning and a `*`; put comments on lines "
         "of their own",
         R"(/odm/build.prop
    import /odm/etc/radio.prop ro.raido.*
/odm/etc/radio.prop
    ro.radio.tuning=wide)",
         R"(/odm/build.prop
    import /odm/etc/radio.prop ro.radio.*
/odm/etc/radio.prop
    ro.radio.tuning=wide)"},
        {"import-multiplies", Severity::kWarning,
         "Imports that lead to the same file a hundred times or more while one file is loaded",
         "The loader loads the file anew each time, and the boot waits for it",
         "Import a file in one place only",
         R"(/odm/build.prop
    import /odm/etc/a.prop
    import /odm/etc/a.prop
    import /odm/etc/a.prop
    import /odm/etc/a.prop
    import /odm/etc/a.prop
/odm/etc/a.prop
    import /odm/etc/b.prop
    import /odm/etc/b.prop
    import /odm/etc/b.prop
    import /odm/etc/b.prop
    import /odm/etc/b.prop
/odm/etc/b.prop
    import /odm/etc/c.prop
    import /odm/etc/c.prop
    import /odm/etc/c.prop
    import /odm/etc/c.prop
/odm/etc/c.prop)",
         R"(/odm/build.prop
    import /odm/etc/a.prop
    import /odm/etc/b.prop
    import /odm/etc/c.prop
/odm/etc/a.prop
/odm/etc/b.prop
/odm/etc/c.prop)"},
        {"symbolic-link", Severity::kError,
         "A property file, or the target of an import, that is a symbolic link",
         "The loader refuses to open it",
         "Put the file itself there; the directories of its path may be links",
         R"(/odm/build.prop -> /odm/etc/base.prop
/odm/etc/base.prop)",
         R"(/odm/build.prop
    import /odm/etc/base.prop
/odm/etc/base.prop)"},
        {"not-a-file", Severity::kWarning,
         "A directory, pipe or device with a property file's name", "It sets nothing", "Rename it",
         R"(/odm/build.prop
/odm/etc/radio.prop/)",
         R"(/odm/build.prop
/odm/etc/radio/)"},
        {"unreadable", Severity::kError,
         "A file or directory that cannot be read, or a file of more than 16 MiB",
         "What it sets is unknown, and the loader reads all of a huge file into memory",
         "Correct its mode, or move a file that is no property file away",
         R"(/odm/build.prop
/odm/etc/radio.prop, 17 MiB)",
         R"(/odm/build.prop
/odm/etc/radio.img, 17 MiB)"},
        {"binary", Severity::kError, "A zero byte",
         "No name or value can contain one, so the file is damaged or is no text (it may be "
         "UTF-16)",
         "Restore the file, or save it as UTF-8",
         R"(/odm/build.prop
    ro.sample.name=Alpha\0)",
         R"(/odm/build.prop
    ro.sample.name=Alpha)"},
        {"not-utf8", Severity::kError, "A line that is not UTF-8 text, unless it is a comment",
         "`init` refuses such a value", "Save the file as UTF-8",
         R"(/odm/build.prop
    ro.sample.name=M\xfcller)",
         R"(/odm/build.prop
    ro.sample.name=Müller)"},
        {"carriage-return", Severity::kError, "A carriage return within a line",
         "It ends no line: what follows it is part of the value or the comment",
         "End lines with a line feed",
         R"(/odm/build.prop
    ro.sample.name=Alpha\rro.sample.code=7)",
         R"(/odm/build.prop
    ro.sample.name=Alpha
    ro.sample.code=7)"},
        {"crlf", Severity::kWarning,
         "Lines that end in a carriage return and a line feed; the first one is shown",
         "The loader drops the carriage return, but other readers, such as that of a bare key, "
         "keep it",
         "End lines with a line feed",
         R"(/odm/build.prop
    ro.sample.name=Alpha\r
    ro.sample.code=7\r)",
         R"(/odm/build.prop
    ro.sample.name=Alpha
    ro.sample.code=7)"},
        {"no-equals", Severity::kError,
         "A line that is neither a comment, an import nor `name=value`; a key file may hold the "
         "bare key",
         "The loader skips it in silence",
         "Add the `=`, or comment the line out; after `import` there must be a blank, not a tab",
         R"(/odm/build.prop
    ro.sample.name Alpha)",
         R"(/odm/build.prop
    ro.sample.name=Alpha)"},
        {"illegal-name", Severity::kError,
         "A name that is not made of letters, digits and `._-@:`, or with an empty part between "
         "dots",
         "`init` refuses the property", "Rename it",
         R"(/odm/build.prop
    ro.sample name=Alpha)",
         R"(/odm/build.prop
    ro.sample.name=Alpha)"},
        {"value-too-long", Severity::kError,
         "A value of more than 91 bytes whose name does not begin with `ro.`",
         "`init` refuses the property", "Shorten it, or make it a `ro.` property",
         R"(/odm/build.prop
    persist.sample.slogan=01234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901)",
         R"(/odm/build.prop
    ro.sample.slogan=01234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901)"},
        {"duplicate-name", Severity::kWarning, "One name twice in a file, with different values",
         "A load takes the last value, a look-up of the name (region, brand, market name) the "
         "first",
         "Keep one line",
         R"(/odm/build.prop
    ro.sample.name=Alpha
    ro.sample.name=Beta)",
         R"(/odm/build.prop
    ro.sample.name=Beta)"},
        {"skipped-file", Severity::kWarning,
         "A file in a switch key's directory whose name does not end in `.prop`",
         "It is not loaded", "Rename it, or move it away",
         R"(/odm/properties/north/SimSwitchFirstTime/carrier.prop
/odm/properties/north/SimSwitchFirstTime/apn.prop.bak)",
         R"(/odm/properties/north/SimSwitchFirstTime/carrier.prop
/odm/properties/north/SimSwitchFirstTime/apn.prop)"},
        {"unknown-kind", Severity::kError,
         "A directory with property files in a switch key's directory whose name is not "
         "`SimSwitchFirstTime`, `SimSwitchCurrentTime`, `switchCarrierChannel` or `regionSwitch`",
         "No boot looks into it", "Correct the name: `properties/KEY/SimSwitchFirstTime`",
         R"(/odm/properties/north/SimSwitchFirst/carrier.prop)",
         R"(/odm/properties/north/SimSwitchFirstTime/carrier.prop)"},
        {"no-kind", Severity::kError,
         "Property files in `properties` itself, or in a key's directory, instead of the directory "
         "of a key and a kind",
         "No boot looks for them there",
         "Move them into `properties/KEY/SimSwitchFirstTime`, or the directory of their kind",
         R"(/odm/properties/north/carrier.prop)",
         R"(/odm/properties/north/SimSwitchFirstTime/carrier.prop)"},
        {"nested-directory", Severity::kError,
         "Property files in a sub-directory of the directory that holds a switch key's files",
         "The library does not look into sub-directories", "Move the files up",
         R"(/odm/properties/north/SimSwitchFirstTime/apn/lte.prop)",
         R"(/odm/properties/north/SimSwitchFirstTime/lte.prop)"},
        {"misspelt-properties", Severity::kError,
         "The directories of switch keys in a directory of a partition root that is not called "
         "`properties`",
         "No boot looks into it", "Rename it",
         R"(/odm/property/north/SimSwitchFirstTime/carrier.prop)",
         R"(/odm/properties/north/SimSwitchFirstTime/carrier.prop)"},
        {"unsearched-root", Severity::kWarning,
         "Directories of switch keys in a directory that is no partition root",
         "No boot looks into them, unless a carrier package makes the directory a partition root",
         "Move `properties` into a partition root",
         R"(/odm/etc/properties/north/SimSwitchFirstTime/carrier.prop)",
         R"(/odm/properties/north/SimSwitchFirstTime/carrier.prop)"},
        {"misspelt-partition", Severity::kError,
         "A partition's directory without a partition root, whose name is nearly that of a "
         "partition that the library reads",
         "No boot reads it", "Correct the name",
         R"(/odm/build.prop
/mnt/vendor/my_regiom/build.prop)",
         R"(/odm/build.prop
/mnt/vendor/my_region/build.prop)"},
        {"unknown-partition", Severity::kWarning,
         "A directory that looks like a partition that the library reads, without a partition root",
         "No boot reads it",
         "Move the files to a partition that is read, or let one of its files import them",
         R"(/odm/build.prop
/mnt/vendor/my_games/build.prop)",
         R"(/odm/build.prop
    import /mnt/vendor/my_games/build.prop
/mnt/vendor/my_games/build.prop)"},
        {"unread-file", Severity::kWarning,
         "A property file that nothing reads, though it lies on a partition that the library "
         "reads: the library looks for no file of this name there, and no file that is read "
         "imports it. Files that the system's own `init` reads are not reported",
         "A phone does not get the properties in it, unless another program reads the file",
         "Correct the file's name or directory, import it in a file that is read, or delete it",
         R"(/odm/build.prop
/odm/etc/radio.prop)",
         R"(/odm/build.prop
    import /odm/etc/radio.prop
/odm/etc/radio.prop)"},
        {"missing-key", Severity::kError, "A key file without a line of its property",
         "The key is not set; on the reserve partition the library takes the whole text of a file "
         "with an `=` for a key in the old form",
         "Write `sys.sim.switch.first=KEY`, or whichever property the file is for",
         R"(/mnt/vendor/tesvoreserve/system/ssv/sim_switch_first_file
    sys.sim.switch.frist=north)",
         R"(/mnt/vendor/tesvoreserve/system/ssv/sim_switch_first_file
    sys.sim.switch.first=north)"},
        {"bare-key", Severity::kError,
         "A key file on the reserve partition that holds a bare key with a line end, a comment or "
         "white space",
         "The whole text is the key, so no directory of the key's name is loaded",
         "Write `sys.sim.switch.first=KEY`, or nothing but the key",
         R"(/mnt/vendor/tesvoreserve/system/ssv/sim_switch_first_file
    north)",
         R"(/mnt/vendor/tesvoreserve/system/ssv/sim_switch_first_file
    sys.sim.switch.first=north)"},
        {"not-forwarded", Severity::kWarning,
         "A property in a message under `/data/cota` that begins with neither `sys.` nor `ro.`",
         "The library does not hand it over when the package is mounted",
         "Set `persist.` properties in the package itself",
         R"(/data/cota/cota_mount_info.prop
    persist.sample.carrier=north)",
         R"(/data/cota/cota_mount_info.prop
    sys.sample.carrier=north)"},
        {"rom-never-matches", Severity::kError,
         "A `devicename.cfg` whose `ROM` no storage size matches; lint tries every size with the "
         "library itself",
         "The market name is never set", "Use 128, 256, 512 or 1024, digits only",
         R"(/my_product/cust/EU/etc/devicename.cfg
    ROM=384
    market=Sample One)",
         R"(/my_product/cust/EU/etc/devicename.cfg
    ROM=256
    market=Sample One)"},
        {"misspelt-field", Severity::kError,
         "A name in a `devicename.cfg` that is nearly one that the library looks up",
         "The look-up finds nothing: the market name is never set, or is empty",
         "Write `ROM`, `market`, `type` or `model`",
         R"(/my_product/cust/EU/etc/devicename.cfg
    ROM=256
    makret=Sample One)",
         R"(/my_product/cust/EU/etc/devicename.cfg
    ROM=256
    market=Sample One)"},
        {"misplaced-market-name", Severity::kWarning,
         "A `devicename.cfg` elsewhere than in `/my_product/cust/REGION/etc`",
         "The library looks for the market name there only", "Move the file",
         R"(/odm/build.prop
/mnt/vendor/my_product/etc/devicename.cfg
    ROM=256
    market=Sample One)",
         R"(/odm/build.prop
/mnt/vendor/my_product/cust/EU/etc/devicename.cfg
    ROM=256
    market=Sample One)"},
        {"misspelt-file", Severity::kWarning,
         "A file whose path is nearly that of a file that the library reads", "Nothing reads it",
         "Rename it",
         R"(/odm/build.porp
    ro.sample.name=Alpha)",
         R"(/odm/build.prop
    ro.sample.name=Alpha)"},
        {"unknown-key", Severity::kWarning,
         "A key file with a key for which no partition root has a directory, though other keys "
         "have some",
         "The key selects nothing",
         "Correct the key, or add `properties/KEY/SimSwitchFirstTime` or the directory of its kind",
         R"(/odm/properties/north/SimSwitchFirstTime/carrier.prop
    ro.sample.carrier=north
/data/system/customize/sim_switch/sim_switch_first_file
    sys.sim.switch.first=nroth)",
         R"(/odm/properties/north/SimSwitchFirstTime/carrier.prop
    ro.sample.carrier=north
/data/system/customize/sim_switch/sim_switch_first_file
    sys.sim.switch.first=north)"},
        {"unknown-region", Severity::kWarning,
         "A region without a directory in `cust`, though other regions have one; upper and lower "
         "case differ",
         "Nothing of the region is loaded",
         "Correct the region in `/mnt/vendor/my_region/build.prop`, or the directory's name",
         R"(/mnt/vendor/my_region/build.prop
    ro.tesvo.pipeline.region=IN
/mnt/vendor/my_product/cust/in/build.prop)",
         R"(/mnt/vendor/my_region/build.prop
    ro.tesvo.pipeline.region=IN
/mnt/vendor/my_product/cust/IN/build.prop)"},
        {"unknown-brand", Severity::kWarning,
         "A brand in `/system_ext/etc/build.prop` that the library does not know",
         "Nothing of the brand is loaded", "Write one of the brands that the message names",
         R"(/system_ext/etc/build.prop
    ro.tesvo.image.system_ext.brand=Qubba)",
         R"(/system_ext/etc/build.prop
    ro.tesvo.image.system_ext.brand=Quba)"},
        {"import-equals", Severity::kError, "An `import=/...`",
         "It sets a property that is called `import`, and nothing is imported",
         "Write a blank instead of the `=`",
         R"(/odm/build.prop
    import=/odm/etc/radio.prop
/odm/etc/radio.prop)",
         R"(/odm/build.prop
    import /odm/etc/radio.prop
/odm/etc/radio.prop)"},
        {"comment-in-value", Severity::kWarning, "A value with a `#` after a blank",
         "A comment is a whole line; after a value it is part of the value",
         "Put the comment on a line of its own",
         R"(/odm/build.prop
    ro.sample.name=Alpha # the first one)",
         R"(/odm/build.prop
    # the first one
    ro.sample.name=Alpha)"},
        {"quoted-value", Severity::kWarning, "A value in quotes",
         "The quotes are part of the value", "Leave them out; a value may contain blanks",
         R"(/odm/build.prop
    ro.sample.name="Alpha Beta")",
         R"(/odm/build.prop
    ro.sample.name=Alpha Beta)"},
        {"not-checked", Severity::kWarning,
         "A `devicename.cfg` that could not be tried, or a device that could not be booted, "
         "because this machine allows no sandbox or the library does not return; or imports that "
         "lead on through more than 200 files",
         "Its `ROM` may never match; or some files that nothing reads, and some imports with "
         "references that lead nowhere or come too early, are not found; or cycles and repeated "
         "loads are not found in such imports",
         "Run lint where `extprop boot` runs; mend the other errors",
         R"(/odm/build.prop
/mnt/vendor/my_carrier/etc/flags.prop
    import /mnt/vendor/my_carrier/etc/flags.prop)",
         R"(/odm/build.prop
/mnt/vendor/my_carrier/etc/flags.prop)"},
        {"logo-too-large", Severity::kError,
         "A boot logo larger than the splash partition, where the device directory has one",
         "The logo is never copied", "Make the logo smaller",
         R"(/dev/block/by-name/splash_odm, 1 MiB
/my_company/media/logo/logo.bin, 2 MiB)",
         R"(/dev/block/by-name/splash_odm, 2 MiB
/my_company/media/logo/logo.bin, 2 MiB)"},
        {"unused-allowance", Severity::kWarning,
         "A comment `# extprop: allow RULE: reason` where that rule finds nothing",
         "It hides a fault that somebody makes there later",
         "Delete the comment, or put it directly above its line; in a file's first line it holds "
         "for the whole file",
         R"(/odm/build.prop
    # extprop: allow illegal-name: the camera's service reads it here
    ro.sample.camera=2)",
         R"(/odm/build.prop
    # extprop: allow illegal-name: the camera's service reads it here
    ro.sample camera=2)"},
        {"no-device", Severity::kError,
         "A directory that is empty, or has nothing at any place where the library reads",
         "It is no device's root, so there was nothing to check",
         "Give the directory that holds `odm`, `mnt/vendor/my_region` and so on; "
         "`docs/device-directory.md` shows how to make it",
         R"(/phone/odm/build.prop)", R"(/odm/build.prop)"},
};

// Returns the rule from the table, which must have it. In a constant an unknown name does not
// compile; elsewhere it throws std::logic_error.
constexpr const Rule& RuleNamed(std::string_view identifier) {
    for (const Rule& rule : kRules) {
        if (identifier == rule.identifier) return rule;
    }
    throw std::logic_error("lint has no such rule");
}

// Return all of the rule's texts and both examples, as Markdown. The section begins with a heading
// and the severity.
std::string RuleText(const Rule& rule);
std::string RuleSection(const Rule& rule);

}  // namespace extprop
