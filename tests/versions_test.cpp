#include <android-base/strings.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device.h"

namespace {

using android::init::loadCustomizeDisplayVersionName;
using android::init::loadSpecialProperties;

constexpr char kSuffix[] = "ro.vendor.tesvo.version_suffix";
constexpr char kDisplayId[] = "ro.build.display.id";
constexpr char kExport[] = "ro.vendor.tesvo.exp.version";
constexpr char kDisplay[] = "ro.tesvo.customize.display.version_name";
constexpr char kCarrier[] = "ro.tesvo.image.my_carrier.version_name";
constexpr char kRegion[] = "ro.tesvo.image.my_region.version_name";
constexpr char kCota[] = "ro.build.cota.version_name";

using Fields = std::vector<std::string>;

// Boots a device and hands each row's fields, which commas divide, to `body`.
void ForEach(const std::vector<std::string>& rows, const std::function<void(Init&, Fields)>& body) {
    Device device;
    device.Boot([&](Init& init) {
        for (const std::string& row : rows) {
            SCOPED_TRACE(row);
            body(init, android::base::Split(row, ","));
        }
    });
}

// Sets just these properties, runs the operation and expects one value of the name, or no call.
void ExpectOf(Init& init, void (*operation)(android::init::PropertyCallback),
              const PropertyMap& properties, const char* name, const std::string& value,
              const Fields& log) {
    platform::ResetProperties({});
    for (const auto& [given, text] : properties) init.Set(given, text);
    init.TakeLog();
    operation(Init::Callback);
    const Call call = {0, {{name, value}}};
    EXPECT_EQ(init.TakeCalls(), std::vector<Call>(value.empty() ? 0 : 1, call));
    EXPECT_EQ(init.TakeLog(), log);
}

TEST(Versions, ExportVersionTakesTheSuffixBeforeTheFirstUnderscore) {
    // Suffix, display id and version; no version, no call.
    const std::string a(90, 'a');
    ForEach({"EX,AB1234_11_C.05,AB1234EX_11_C.05", "X,A_B_C,AX_B_C", "_,A_,A__", ",A_B,", "X,,",
             "X,ABC,", "X,_A_B,", "X,_,",
             // Values are read up to 91 bytes; what is made of them may be longer.
             a + "bc," + a + "_d," + a + a + "b_", "X," + a + "a_,"},
            [](Init& init, Fields known) {
                ExpectOf(init, loadSpecialProperties, {{kSuffix, known[0]}, {kDisplayId, known[1]}},
                         kExport, known[2], {});
            });
}

TEST(Versions, DisplayVersionIsTheTailOfAnImageVersionName) {
    // Display version, carrier's and region's version names, and the tail if it is logged.
    ForEach({",CARRIER-EU-V2.1,R-1.0,V2.1", ",,R-1.0,1.0", ",V2,R-1.0,V2", ",a-b,,b", ",,",
             "x,C-V2,R-1.0",
             // A "-" that starts the name does not count, but one that ends it does.
             ",-V2,,-V2", ",-A-V2,,V2", ",-,R-1.0,-", ",--,R-1.0,", ",V1-,R-1.0,"},
            [](Init& init, Fields known) {
                Fields log;
                if (known.size() == 4) log = {"I customize dispaly version " + known[3]};
                known.resize(4);
                ExpectOf(init, loadSpecialProperties,
                         {{kDisplay, known[0]}, {kCarrier, known[1]}, {kRegion, known[2]}},
                         kDisplay, known[3], log);
            });
}

TEST(Versions, CarrierPackageVersionIsAppended) {
    // Display version, carrier's and package's version names, and what is handed on, if anything;
    // then the package's type, Android letter and version, if they are logged.
    ForEach({"x,CARRIER-V2.1,X_13_COTA_5,V2.1_13005,CT,13,005", "x,-,A_7,-_T007,P,T,007",
             "x,V1-,A_7,", "x,---,A_7,", ",C-V2.1,X_13_COTA_5,",
             // The ending tells the type of package that the version was made for.
             "11.A.05PM,,X_T_7,11.A.05P_T007,P,T,007", "1.0CT,,X_13_cota_5,1.0P_13005,P,13,005",
             "x,C-1.0PM,X_13_COTA_42,1.0CT_13042,CT,13,042",
             "1.0pm,,X_13_COTA_5,1.0pm_13005,CT,13,005", "PMx,,A_7,PMx_T007,P,T,007",
             "PM,,A_7,P_T007,P,T,007", "M,,A_7,M_T007,P,T,007",
             // Fields are taken from the end; one that starts the name does not count.
             "V,,A_123,V_T123,P,T,123", "V,,X_13_COTA_,V_13000,CT,13,000",
             "V,,_13_COTA_5,V_T005,CT,T,005", "V,,_COTA_5,V_T005,P,T,005", "V,,,V",
             "1.0PM,,ABC,1.0PM", "V,,_7,V", "V,,_,V", "V,,__,V_T000,P,T,000",
             "1.0PM,,____,1.0PM,P,,000", "1.0CT,,A__COTA_5,1.0CT,CT,,005"},
            [](Init& init, Fields known) {
                Fields log;
                if (!known[0].empty() && !known[1].empty()) log = {"I carrier version " + known[1]};
                if (known.size() > 4) {
                    log.push_back("I cota type " + known[4] + " android version: " + known[5] +
                                  " cota version: " + known[6] + " display version: " + known[3]);
                }
                ExpectOf(init, loadCustomizeDisplayVersionName,
                         {{kDisplay, known[0]}, {kCarrier, known[1]}, {kCota, known[2]}}, kDisplay,
                         known[3], log);
            });
}

TEST(Versions, BothOperationsRunAgainAndAgain) {
    ForEach({"C-EU-1.0PM,R-1,X_13_COTA_5,1.0PM,1.0CT_13005,1.0CT_13005",
             ",R-1.0PM,X_T_7,1.0PM,1.0P_T007,1.0P_T007_T007"},
            [](Init& init, Fields known) {
                const PropertyMap given = {
                        {kCarrier, known[0]}, {kRegion, known[1]}, {kCota, known[2]}};
                ExpectOf(init, loadCustomizeDisplayVersionName, given, kDisplay, "",
                         {});  // too early
                init.Set(kSuffix, "EX");
                init.Set(kDisplayId, "AB_11");
                for (int i = 0; i < 2; i++) {
                    loadSpecialProperties(Init::Callback);
                    loadCustomizeDisplayVersionName(Init::Callback);
                }
                const Call exported = {0, {{kExport, "ABEX_11"}}};
                EXPECT_THAT(init.TakeCalls(),
                            testing::ElementsAre(exported, Call{0, {{kDisplay, known[3]}}},
                                                 Call{0, {{kDisplay, known[4]}}}, exported,
                                                 Call{0, {{kDisplay, known[5]}}}));
            });
}

}  // namespace
