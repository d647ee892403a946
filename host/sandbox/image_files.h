// Files that images and archives are read from, and what is found in them. Errors do not name the
// image; Naming() puts its name before them.

#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include <android-base/unique_fd.h>

#include "reader.h"
#include "view.h"

namespace sandbox {

// What a reader process has found in a file.
struct OpenedFile {
    std::shared_ptr<const images::Reader> reader;
    images::Contained contained;

    // Opens the volume with this index in contained.volumes, as Reader::Open() does.
    std::unique_ptr<images::FileSystem> Open(size_t volume) const {
        return reader->Open(contained.first_volume + volume);
    }
};

// Calls the function and returns its result. If it throws std::runtime_error or a class derived
// from it, throws a std::runtime_error with the image's name before the message.
template <typename Function>
auto Naming(const std::string& image, Function function) try {
    return function();
} catch (const std::runtime_error& error) {
    throw std::runtime_error(image + ": " + error.what());
}

// Opens for reading a regular file or block device of this machine that the user named. Throws
// std::runtime_error if it cannot be opened, and for anything else, whose opening might block.
android::base::unique_fd OpenNamed(const std::string& path);

// Opens the regular file at the device's `path` for reading; links lead to the device's own files.
// `image` is the image that it stands for, empty for several. Throws std::runtime_error if there is
// none, it is anything else or cannot be opened.
android::base::unique_fd OpenInDevice(const View& view, const std::string& image,
                                      const std::string& path);

// Returns a text for people, such as "an update's payload".
const char* WhatIs(images::Kind kind);

// Returns a file system whose root is the given directory of `files`. That it is one is not
// checked.
std::unique_ptr<images::FileSystem> PartOf(std::unique_ptr<images::FileSystem> files,
                                           uint64_t directory);

// Returns a file system that calls `open`, which returns one, only when its root directory is first
// looked into, since what it is packed in may be large or damaged. What `open` throws passes
// through, and the next look calls it again.
std::unique_ptr<images::FileSystem> OpenedLater(
        std::function<std::unique_ptr<images::FileSystem>()> open);

}  // namespace sandbox
