#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <gtest/gtest.h>

#include "device.h"
#include "utils.h"

namespace {

using android::base::StringPrintf;
using android::base::StringReplace;
using android::init::InitExtensionPropertyImpl;

using Operation = void (InitExtensionPropertyImpl::*)(android::init::PropertyCallback);

constexpr Operation kPackage = &InitExtensionPropertyImpl::bindAndLoadCotaOverrideProperties;
constexpr Operation kUpdate = &InitExtensionPropertyImpl::updateCotaInfoProperties;
constexpr Operation kBasic = &InitExtensionPropertyImpl::bindCotaBasicMountPoint;
constexpr Operation kModule = &InitExtensionPropertyImpl::bindCotaModuleMountPoint;

constexpr char kInfo[] = "/data/cota/cota_mount_info.prop";
constexpr char kModuleInfo[] = "/data/cota/cota_module_info.prop";

// Gives the long names that stand in capitals in the tables below.
std::string Expand(std::string text) {
    constexpr const char* kNames[][2] = {
            {"VERIFIED", "sys.cotaimg.verify"},
            {"ROOT", "sys.cota.load.properties"},
            {"BIGBALL", "ro.tesvo.image.my_bigball.version_name"},
            {"CARRIER", "ro.tesvo.image.my_carrier.version_name"},
            {"DISPLAY", "ro.tesvo.customize.display.version_name"},
            {"MEDIA", "ro.sys.custommedia.sourcepath"},
            {"BIND", "mount null 5253 null"},
            {"WRONG", "E cota module wrong dir"},
    };
    for (const auto& [name, meaning] : kNames) text = StringReplace(text, name, meaning, true);
    return text;
}

// What has happened in this process, in order, each with a ";" behind it: mounts with all their
// arguments, labels asked for, properties set by the library, and properties handed on.
std::string g_events;

class Recorder : public platform::Observer {
  public:
    Recorder() { platform::SetObserver(this); }
    void OnOpen(const char*, int) override {}
    void OnMount(const char*, const char*, unsigned long, int, int) override {}
    void OnPropertySet(const std::string& name, const std::string& value) override {
        g_events += name + "=" + value + ";";
    }
    void OnRestorecon(const char* path, unsigned int flags, int result) override {
        struct stat status = {};
        stat(path, &status);
        g_events += StringPrintf("label %u %s %o %d;", flags, path, status.st_mode & 0777, result);
    }
};

// Returns what comes of the operation, and behind it the log.
std::string Operate(Init& init, Operation operation,
                    android::base::LogSeverity least = android::base::ERROR) {
    (InitExtensionPropertyImpl::getInstance()->*operation)([](int mode, PropertyMap properties) {
        Init::Callback(mode, properties);
        g_events += std::to_string(mode);
        for (const auto& [name, value] : properties) g_events += " " + name + "=" + value;
        g_events += ";";
    });
    for (const std::string& line : init.TakeLog(least)) g_events += line + ";";
    return std::exchange(g_events, "");
}

// Leaves a file of the installing service, whose properties are given with blanks between them.
void Leave(const std::string& path, const std::string& properties) {
    const std::string lines = StringReplace(Expand(properties), " ", "\n", true);
    ASSERT_TRUE(android::base::WriteStringToFile(lines, path));
}

// Expects what comes of the operation on a device with two packages and one with media.
void Expect(Operation operation, const std::string& info, const std::string& outcome,
            const PropertyMap& settings = {},
            android::base::LogSeverity least = android::base::ERROR) {
    SCOPED_TRACE(info);
    Device device;
    device.Write("/mnt/p/build.prop", Expand("BIGBALL=B\n"));
    device.Write("/mnt/media/build.prop", Expand("MEDIA=/media\n"));
    device.Write("/my_carrier/build.prop", Expand("BIGBALL=C\n"));
    for (const char* path : {"/mnt/p/cust/build.prop", "/mnt/media/cust/build.prop",
                             "/my_carrier/cust/build.prop", "/mnt/cota/file", "/media/file",
                             "/my_media/file", "/data/cota/file", "/data/system/customize/file"}) {
        device.Write(path, "");
    }
    device.MakeDirectory("/t");
    device.Boot([&](Init& init) {
        Recorder recorder;
        init.Set(Expand("DISPLAY"), "1.0");
        for (const auto& [name, value] : settings) init.Set(Expand(name), value);
        Leave(kModuleInfo, "mount_point=/mnt/p bind_point=/t module_type=x sys.m=1");
        Leave(operation == kModule ? kModuleInfo : kInfo, info);
        EXPECT_EQ(Operate(init, operation, least), Expand(outcome));
        // What was bound over the empty directory is seen there.
        const bool bound = outcome.find("BIND /mnt/p /t 0;") != std::string::npos;
        EXPECT_EQ(access("/t/build.prop", F_OK) == 0, bound);
    });
}

TEST(CotaMount, PackageIsReadWhereItCouldBeBound) {
    const std::string info = "VERIFIED=1 ROOT=/mnt/p";
    const std::string package = "0 BIGBALL=B;0 ROOT=/mnt/p VERIFIED=1;";
    Expect(kPackage, info,
           "BIND /mnt/p /my_carrier 0;0 CARRIER=B;0 ROOT=/mnt/p VERIFIED=1;0 DISPLAY=B;");
    // The media are another package's.
    Expect(kPackage, info + " bind_point=/t", "BIND /mnt/p /t 0;" + package,
           {{"persist.sys.customize.media", "/my_media"}, {"MEDIA", "/media"}});
    Expect(kPackage, info + " bind_point=/mnt/p", package);
    Expect(kPackage, "VERIFIED=1 ROOT=/my_carrier",
           "0 CARRIER=C;0 ROOT=/my_carrier VERIFIED=1;0 DISPLAY=C;");
    // There is no target.
    Expect(kPackage, info + " bind_point=/x",
           "BIND /mnt/p /x -1;" + package +
                   "E cota bindAndLoadCotaOverrideProperties bind failed: -1;");
}

TEST(CotaMount, UnverifiedPackageOnlyForwards) {
    Expect(kPackage, "ROOT=/mnt/p persist.a=1 persisit.b=2 roof=3 x.sys.c=4 bind_point=/t",
           "0 persisit.b=2 ROOT=/mnt/p;");
    Expect(kPackage, "ROOT=/mnt/p VERIFIED=11", "0 ROOT=/mnt/p VERIFIED=11;");
    Expect(kUpdate, "=x VERIFIED=1 ROOT=/mnt/p bind_point=/t persist.a=1 DISPLAY=9",
           "0 =x bind_point=/t persist.a=1 DISPLAY=9 ROOT=/mnt/p VERIFIED=1;0 DISPLAY=9;");
}

TEST(CotaMount, ModuleIsBoundAndItsPropertiesFollow) {
    const std::string paths = "mount_point=/mnt/p bind_point=/t ";
    Expect(kModule, paths + "module_type=configure ro.a=1 sys.b=2 persisit.c=3 roof=4",
           "BIND /mnt/p /t 0;0 CARRIER=B;0 DISPLAY=B;0 ro.a=1 sys.b=2;");
    Expect(kModule, paths + "module_type= roof=4", "BIND /mnt/p /t 0;");
    Expect(kModule, paths + "ro.a=1", "");
    Expect(kModule, "mount_point=/mnt/p bind_point= module_type=x ro.a=1", "");
    Expect(kModule, "mount_point=/x bind_point=/t module_type=configure ro.a=1",
           "BIND /x /t -1;E bindCotaModuleMountPoint bind failed: -1;");
}

TEST(CotaMount, ModuleDirectoriesAreMadeUnderTheirRootsThenTheModuleIsBound) {
    const std::string bound = "BIND /mnt/p /t 0;0 sys.m=1;";
    // Roots are not taken as path components.
    Expect(kBasic, "a=/mnt/cotax/a b=/mnt/cota c=/mnt/cota/file d=/data/system/customizex",
           "label 4 /mnt/cotax 755 0;label 4 /mnt/cotax/a 755 0;"
           "label 4 /data/system/customizex 755 0;" +
                   bound);
    Expect(kBasic,
           "a=/mnt/cot b=/mnt/cota/file/b bind_point=/data/system persisit.c=/t "
           "ro.d=/mnt/cota/no sys.e=/mnt/cota/no",
           bound + "0 ro.d=/mnt/cota/no sys.e=/mnt/cota/no;WRONG /mnt/cot;"
                   "E make dir failed: /mnt/cota/file/b;E cota creat dir /mnt/cota/file/b failed;"
                   "WRONG /data/system;WRONG /t;");
    // Nothing is ever made directly under the root.
    Expect(kBasic, "a=/x/y",
           bound + "I bind cota module: a mount point: /x/y;I create path: /x/y sub dir: /x;"
                   "I create path: /x sub dir: ;E create sub dir failed: ;E create sub dir failed: "
                   "/x;E cota creat dir /x/y failed;I cota module bind from: /mnt/p to: /t;",
           {{"sys.cota.module.base.mount.point", "/x"}}, android::base::INFO);
}

TEST(CotaMount, OneShotFilesAreActedOnAtMostOnce) {
    const std::string no_module = "E not valid cota module info file: ";
    const struct {
        Operation operation;
        std::string path, missing, unread, then;
    } cases[] = {
            {kPackage, kInfo,
             "E not valid cota mount info file: ", "E cota info prop load failed:", ""},
            {kModule, kModuleInfo, no_module, "E cota module info prop load failed:", ""},
            {kBasic, kInfo, "E not valid cota total module info file: ",
             "E cota total module info prop load failed:", no_module + kModuleInfo + ";"},
    };
    const std::string big = "ro.big=" + std::string(1 << 20, 'x');
    Device device;
    device.MakeDirectory("/data/cota");
    device.Boot([&](Init& init) {
        for (const auto& [operation, path, missing, unread, then] : cases) {
            ASSERT_EQ(symlink("/nowhere", path.c_str()), 0);
            EXPECT_EQ(Operate(init, operation), missing + path + ";");
            ASSERT_EQ(unlink(path.c_str()) + mkdir(path.c_str(), 0755), 0);
            EXPECT_EQ(Operate(init, operation), unread + path + ";" + then);
            ASSERT_EQ(rmdir(path.c_str()), 0);
            const std::string handed_on = operation == kModule ? "" : "0 " + big + ";";
            for (const std::string& content : {std::string(), std::string("a #b=c ro.d"), big}) {
                Leave(path, content);
                EXPECT_EQ(Operate(init, operation), (content == big ? handed_on : "") + then);
                EXPECT_NE(access(path.c_str(), F_OK), 0);
            }
        }
    });
}

// A bind that failed is not tried again; one that was made is made again.
// A directory without its label or owner is better than none.
TEST(CotaDirectory, IsMadeEvenWithoutItsLabelOrOwner) {
    Device device;
    device.MakeDirectory("/a");
    device.Boot([](Init& init) {
        ASSERT_EQ(chmod("/a", 0777), 0);
        platform::FailRestorecon(true);
        ASSERT_EQ(seteuid(1000), 0);
        EXPECT_EQ(createCotaDirectory("/a/d"), 0);
        EXPECT_EQ(createCotaDirectory("/a/d"), -1);
        EXPECT_EQ(init.TakeLog(android::base::ERROR),
                  (std::vector<std::string>{"E Unable to chown file: /a/d",
                                            "E Failed to restorecon: /a/d",
                                            "E make dir failed: /a/d"}));
    });
}

TEST(Media, FollowsItsPackageUnlessItFailedBefore) {
    const auto expect = [](const std::string& place, const char* last, const std::string& outcome) {
        Expect(kPackage, "VERIFIED=1 ROOT=/mnt/media bind_point=/mnt/media",
               "0 MEDIA=/media;" + outcome,
               {{"persist.sys.customize.media", place}, {"sys.mount.mediapath.success", last}},
               android::base::INFO);
    };
    const std::string loaded = "0 ROOT=/mnt/media VERIFIED=1;";
    expect("/my_media", "0",
           "mount null 20480 null /media /my_media 0;sys.mount.mediapath.success=0;" + loaded +
                   "I Mount ringtones result :0;");
    expect("/my_media", "-1", loaded);
    expect("/my", "", loaded);
}

}  // namespace

// Stands before the platform's, which tells its observer neither the type nor the data.
extern "C" int mount(const char* source, const char* target, const char* type, unsigned long flags,
                     const void* data) noexcept {
    static const auto next = reinterpret_cast<decltype(&mount)>(dlsym(RTLD_NEXT, "mount"));
    const int result = next(source, target, type, flags, data);
    if (source != nullptr) {
        g_events += StringPrintf("mount %s %lu %s %s %s %d;", type ? type : "null", flags,
                                 data ? "data" : "null", source, target, result);
    }
    return result;
}
