// What the tool's processes send to each other: it arrives whole and in time, or is an error.

#include "boot/message.h"

#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include <android-base/cmsg.h>
#include <android-base/unique_fd.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "boot/delta_fields.h"
#include "boot/report_fields.h"
#include "coverage/workers.h"

namespace {

using extprop::Received;
using nlohmann::json;
using std::chrono::steady_clock;

TEST(MessageTest, ADocumentIsCompleteAtTheDeadline) {
    const std::string text(1'000, 'x');
    for (const bool is_whole : {true, false}) {
        android::base::unique_fd ours, theirs, copied, copy;
        ASSERT_TRUE(android::base::Socketpair(SOCK_STREAM, &ours, &theirs));
        ASSERT_TRUE(android::base::Socketpair(SOCK_STREAM, &copied, &copy));
        ASSERT_TRUE(extprop::SendDocument(theirs.get(), text));
        char bytes[2'000];
        const ssize_t size = read(ours.get(), bytes, sizeof(bytes)) - (is_whole ? 0 : 1);
        ASSERT_EQ(write(copied.get(), bytes, size), size);
        json document;
        const auto deadline = steady_clock::now() + std::chrono::milliseconds(100);
        EXPECT_EQ(extprop::ReceiveDocument(copy.get(), deadline, &document),
                  is_whole ? Received::kMessage : Received::kTimeOut);
        EXPECT_EQ(document == text, is_whole);
    }
}

TEST(MessageTest, CutTextsAreRefused) {
    for (const char* text : {"1 1 4 nam", "1 1 4 name=x", "1 1 9 name\n2 1 1 a\n", "1"}) {
        json document = text;
        std::vector<extprop::LineRead> lines;
        EXPECT_THROW(extprop::Read(document, &lines), std::out_of_range) << text;
    }
    for (const char* text : {"4 1 name", "4 1", "4 18446744073709551615 name", "4"}) {
        json document = {text, json::array()};
        extprop::PropertyDelta delta;
        EXPECT_THROW(extprop::Read(document, &delta), std::out_of_range) << text;
    }
}

TEST(WorkersTest, NoResultIsLost) {
    const auto work = [](size_t number) -> json {
        if (number == 1) _exit(EXIT_SUCCESS);
        return number;
    };
    size_t done = 0;
    const auto count = [&](size_t, const json&) { ++done; };
    EXPECT_THROW(extprop::ForEachInParallel(2, 1, work, count), std::runtime_error);
    EXPECT_EQ(done, 1u);
    extprop::ForEachInParallel(1, 2, work, count);
    EXPECT_EQ(done, 2u);
}

}  // namespace
