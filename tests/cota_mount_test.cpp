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
            {"RESULT", "sys.mount.mediapath.success"},
            {"BIND", "mount null 5253 null"},
            {"RECURSE", "mount null 20480 null"},
            {"UNBOUND", "E cota bindAndLoadCotaOverrideProperties bind failed: -1"},
            {"WRONG", "E cota module wrong dir"},
    };
    for (const auto& [name, meaning] : kNames) text = StringReplace(text, name, meaning, true);
    return text;
}

// What has happened in this process, in order, each with a ";" behind it: mounts with all their
// arguments, labels asked for, properties set by the library, and properties handed on.
std::string g_events;

// Returns what has happened since the last time, and behind it the log.
std::string Take(Init& init, android::base::LogSeverity least = android::base::ERROR) {
    std::string events = std::exchange(g_events, "");
    for (const std::string& line : init.TakeLog(least)) events += line + ";";
    return events;
}

class Recorder : public platform::Observer {
  public:
    Recorder() { platform::SetObserver(this); }
    void OnOpen(const char*, int) override {}
    void OnMount(const char*, const char*, unsigned long, int, int) override {}
    void OnPropertySet(const std::string& name, const std::string& value) override {
        g_events += name + "=" + value + ";";
    }
    void OnRestorecon(const char* path, unsigned int flags, int result) override {
        g_events += StringPrintf("label %u %s %d;", flags, path, result);
    }
};

void Operate(Operation operation) {
    (InitExtensionPropertyImpl::getInstance()->*operation)([](int mode, PropertyMap properties) {
        Init::Callback(mode, properties);
        g_events += std::to_string(mode);
        for (const auto& [name, value] : properties) g_events += " " + name + "=" + value;
        g_events += ";";
    });
}

// Leaves a file of the installing service, whose properties are given with blanks between them.
void Leave(const std::string& path, const std::string& properties) {
    const std::string lines = StringReplace(Expand(properties), " ", "\n", true);
    ASSERT_TRUE(android::base::WriteStringToFile(lines, path));
}

// Expects what comes of the operation on a device with two packages and one with media.
void Expect(Operation operation, const std::string& info, const std::string& outcome,
            const PropertyMap& settings = {}) {
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
        Operate(operation);
        EXPECT_EQ(Take(init), Expand(outcome));
        // What was bound over the empty directory is seen there.
        const bool bound = outcome.find("BIND /mnt/p /t 0;") != std::string::npos;
        EXPECT_EQ(access("/t/build.prop", F_OK) == 0, bound);
    });
}

TEST(CotaMount, PackageIsReadWhereItCouldBeBound) {
    const std::string info = "VERIFIED=1 ROOT=/mnt/p";
    const std::string package = "0 BIGBALL=B;0 ROOT=/mnt/p VERIFIED=1;";
    const std::string carrier = "0 CARRIER=C;0 ROOT=/my_carrier VERIFIED=1;0 DISPLAY=C;";
    Expect(kPackage, info,
           "BIND /mnt/p /my_carrier 0;0 CARRIER=B;0 ROOT=/mnt/p VERIFIED=1;0 DISPLAY=B;");
    // The media are another package's.
    Expect(kPackage, info + " bind_point=/t", "BIND /mnt/p /t 0;" + package,
           {{"persist.sys.customize.media", "/my_media"}, {"MEDIA", "/media"}});
    Expect(kPackage, info + " bind_point=/my_carrier/", "BIND /mnt/p /my_carrier/ 0;" + package);
    Expect(kPackage, info + " bind_point=/mnt/p", package);
    Expect(kPackage, "VERIFIED=1 ROOT=/my_carrier", carrier);
    // There is no target.
    Expect(kPackage, info + " bind_point=/x", "BIND /mnt/p /x -1;" + package + "UNBOUND;");
    Expect(kPackage, "VERIFIED=1 ROOT=/my_carrier bind_point=",
           "BIND /my_carrier  -1;" + carrier + "UNBOUND;");
}

TEST(CotaMount, UnverifiedPackageOnlyForwards) {
    Expect(kPackage, "ROOT=/mnt/p persist.a=1 persisit.b=2 roof=3 x.sys.c=4 bind_point=/t",
           "0 persisit.b=2 ROOT=/mnt/p;");
    Expect(kPackage, "ROOT=/mnt/p VERIFIED=11", "0 ROOT=/mnt/p VERIFIED=11;");
    Expect(kPackage, "ROOT=mnt/p VERIFIED=1", "0 ROOT=mnt/p VERIFIED=1;");
    Expect(kUpdate, "=x VERIFIED=1 ROOT=/mnt/p bind_point=/t persist.a=1 DISPLAY=9",
           "0 =x bind_point=/t persist.a=1 DISPLAY=9 ROOT=/mnt/p VERIFIED=1;0 DISPLAY=9;");
}

TEST(CotaMount, ModuleIsBoundAndItsPropertiesFollow) {
    const std::string paths = "mount_point=/mnt/p bind_point=/t ";
    Expect(kModule, paths + "module_type=configure ro.a=1 sys.b=2 persisit.c=3 roof=4",
           "BIND /mnt/p /t 0;0 CARRIER=B;0 DISPLAY=B;0 ro.a=1 sys.b=2;");
    Expect(kModule, paths + "module_type=configure2 ro.a=1", "BIND /mnt/p /t 0;0 ro.a=1;");
    Expect(kModule, paths + "module_type= roof=4", "BIND /mnt/p /t 0;");
    Expect(kModule, paths + "ro.a=1", "");
    Expect(kModule, "bind_point=/t module_type=x ro.a=1", "");
    Expect(kModule, "mount_point=/mnt/p bind_point= module_type=x ro.a=1", "");
    Expect(kModule, "mount_point=/mnt/p bind_point=/x module_type=configure ro.a=1",
           "BIND /mnt/p /x -1;E bindCotaModuleMountPoint bind failed: -1;");
}

TEST(CotaMount, ModuleDirectoriesAreMadeUnderTheirRootsThenTheModuleIsBound) {
    const std::string bound = "BIND /mnt/p /t 0;0 sys.m=1;";
    // Roots are not taken as path components.
    Expect(kBasic, "a=/mnt/cotax/a b=/mnt/cota c=/mnt/cota/file d=/data/system/customizex",
           "label 4 /mnt/cotax 0;label 4 /mnt/cotax/a 0;label 4 /data/system/customizex 0;" +
                   bound);
    Expect(kBasic,
           "a=/mnt/cot b=/mnt/cota/file/b bind_point=/data/system persisit.c=/t "
           "ro.d=/mnt/cota/no sys.e=/mnt/cota/no",
           bound + "0 ro.d=/mnt/cota/no sys.e=/mnt/cota/no;WRONG /mnt/cot;"
                   "E make dir failed: /mnt/cota/file/b;E cota creat dir /mnt/cota/file/b failed;"
                   "WRONG /data/system;WRONG /t;");
    Expect(kBasic, "a=/mnt/cota/no b=/mnt/x", "label 4 /mnt/x 0;" + bound + "WRONG /mnt/cota/no;",
           {{"sys.cota.module.base.mount.point", "/mnt/x"}});
}

// Whatever lies at its path, a file of the installing service is acted on at most once.
void ExpectOneShot(Init& init, Operation operation, const char* path, std::string missing,
                   std::string unread, const std::string& then = "") {
    missing.append(path).append(";");
    unread.append(path).append(";").append(then);
    const auto expect = [&](const std::string& outcome, bool stays) {
        Operate(operation);
        EXPECT_EQ(Take(init), outcome);
        struct stat status;
        EXPECT_EQ(lstat(path, &status) == 0, stays);
    };
    ASSERT_EQ(symlink("/nowhere", path), 0);
    expect(missing, true);
    ASSERT_EQ(unlink(path) + symlink("/target", path), 0);
    expect(unread, false);
    ASSERT_EQ(access("/target", F_OK) + mkdir(path, 0755), 0);
    expect(unread, true);
    ASSERT_EQ(rmdir(path), 0);
    for (const char* nothing : {"", "a #b=c ro.d"}) {
        Leave(path, nothing);
        expect(then, false);
    }
    const std::string big = "ro.big=" + std::string(1 << 20, 'x');
    Leave(path, big);
    expect((operation == kModule ? "" : "0 " + big + ";") + then, false);
    expect(missing, false);
}

TEST(CotaMount, OneShotFilesAreDeletedOnceRead) {
    const std::string no_info = "E not valid cota mount info file: ";
    const std::string no_module = "E not valid cota module info file: ";
    Device device;
    device.Write("/target", "ro.linked=1\n");
    device.MakeDirectory("/data/cota");
    device.Boot([&](Init& init) {
        ExpectOneShot(init, kPackage, kInfo, no_info, "E cota info prop load failed:");
        ExpectOneShot(init, kUpdate, kInfo, no_info, "E cota info prop load failed:");
        ExpectOneShot(init, kModule, kModuleInfo, no_module,
                      "E cota module info prop load failed:");
        ExpectOneShot(init, kBasic, kInfo, "E not valid cota total module info file: ",
                      "E cota total module info prop load failed:", no_module + kModuleInfo + ";");
    });
}

TEST(CotaDirectory, IsMadeWithItsParentsAndGivenToRoot) {
    Device device;
    device.MakeDirectory("/a");
    device.Boot([](Init& init) {
        Recorder recorder;
        // What is made here belongs to another group at first.
        ASSERT_EQ(chown("/a", 0, 1000) + chmod("/a", 02777), 0);
        EXPECT_EQ(createCotaDirectory("/a/b/c"), 0);
        EXPECT_EQ(Take(init, android::base::INFO),
                  "label 4 /a/b 0;label 4 /a/b/c 0;I create path: /a/b/c sub dir: /a/b;"
                  "I create path: /a/b sub dir: /a;I create path: /a/b/c sub dir: /a/b;");
        struct stat status;
        ASSERT_EQ(stat("/a/b", &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0755u);
        EXPECT_EQ(status.st_gid, 0u);
        EXPECT_EQ(createCotaDirectory("/a/b"), -1);
        EXPECT_EQ(Take(init), "E make dir failed: /a/b;");
        // Nothing is ever made directly under the root.
        EXPECT_EQ(createCotaDirectory("/x/y"), -1);
        EXPECT_EQ(Take(init), "E create sub dir failed: ;E create sub dir failed: /x;");
        // A directory without its label or owner is better than none.
        platform::FailRestorecon(true);
        ASSERT_EQ(seteuid(1000), 0);
        EXPECT_EQ(createCotaDirectory("/a/d"), 0);
        EXPECT_EQ(Take(init),
                  "label 4 /a/d -1;E Unable to chown file: /a/d;E Failed to restorecon: /a/d;");
    });
}

TEST(Media, IsBoundOverACustomisationPartition) {
    Device device;
    for (const char* path : {"/media/tone", "/my_media/file"}) device.Write(path, "");
    device.Boot([](Init& init) {
        Recorder recorder;
        init.extension->bindCustomizeMediaPath("/my_media");
        init.Set(Expand("MEDIA"), "/media");
        init.extension->bindCustomizeMediaPath("/my");
        init.extension->bindCustomizeMediaPath("/my_media");
        EXPECT_EQ(Take(init, android::base::INFO),
                  Expand("RECURSE /media /my_media 0;RESULT=0;I Mount ringtones result :0;"));
        EXPECT_EQ(access("/my_media/tone", F_OK), 0);
    });
}

// A bind that failed is not tried again; one that was made is made again.
TEST(Media, FollowsItsPackageUnlessItFailedBefore) {
    const auto expect = [](const std::string& place, const char* last_result,
                           const std::string& outcome) {
        Expect(kPackage, "VERIFIED=1 ROOT=/mnt/media bind_point=/mnt/media",
               "0 MEDIA=/media;" + outcome + "0 ROOT=/mnt/media VERIFIED=1;",
               {{"persist.sys.customize.media", place}, {"RESULT", last_result}});
    };
    expect("/my_media", "", "RECURSE /media /my_media 0;RESULT=0;");
    expect("/my_media", "0", "RECURSE /media /my_media 0;RESULT=0;");
    expect("/my_media", "-1", "");
    expect("/my_media", "00", "");
    // A property is cut to what one can hold on a device.
    const std::string cut = "/my_" + std::string(87, 'x');
    expect(cut + "xxx", "", "RECURSE /media " + cut + " -1;RESULT=-1;");
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
