// Files that images and archives are read from, and what is found in them.

#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include <android-base/unique_fd.h>

#include "reader.h"
#include "view.h"

namespace sandbox {

// What a process has found in a file.
struct Looked {
    std::shared_ptr<const images::Reader> reader;
    images::Contained contained;

    std::unique_ptr<images::FileSystem> Open(size_t volume) const {
        return reader->Open(contained.first_volume + volume);
    }
};

// Returns what the function does; what it throws names the image then.
template <typename Function>
auto Naming(const std::string& image, Function function) try {
    return function();
} catch (const std::runtime_error& error) {
    throw std::runtime_error(image + ": " + error.what());
}

// Opens a file or block device that the user named, and nothing that might not come back from being
// opened. Throws std::runtime_error.
android::base::unique_fd OpenNamed(const std::string& path);

// Opens a regular file in the device directory, where links lead within it. `image` is what it
// stands for, empty if that is many. Throws std::runtime_error.
android::base::unique_fd OpenInDevice(const View& view, const std::string& image,
                                      const std::string& path);

// Such as "an update's payload".
const char* WhatIs(images::Kind kind);

// Returns the file system from one of its directories on.
std::unique_ptr<images::FileSystem> PartOf(std::unique_ptr<images::FileSystem> files,
                                           uint64_t directory);

// Returns a file system that is opened by the first who looks into its root directory: what it is
// packed in may be large, or damaged.
std::unique_ptr<images::FileSystem> OpenedLater(
        std::function<std::unique_ptr<images::FileSystem>()> open);

}  // namespace sandbox
