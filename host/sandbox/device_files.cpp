#include "device_files.h"

#include <errno.h>
#include <sys/stat.h>

#include "checks.h"
#include "images.h"

namespace sandbox {

namespace {

void Done(long result, const std::string& what) {
    errno = static_cast<int>(-result);
    Check(result >= 0, what);
}

}  // namespace

DeviceFiles::DeviceFiles(const std::string& device, const Options& options,
                         std::vector<std::string>* notes)
        : view_(device, MakeState()) {
    std::vector<Image> images = OpenImages(device, options, notes);
    const std::string unpacked = scratch_.path() + "/images";
    if (!images.empty()) Check(mkdir(unpacked.c_str(), 0700) == 0, unpacked);
    for (Image& image : images) {
        const std::string content = unpacked + "/" + image.partition;
        Unpack(&image, content);
        Done(view_.ShowTree(content, image.place),
             image.path + ": cannot be shown at " + image.place);
        if (image.link.empty()) continue;
        Done(view_.MakeLink(image.place, image.link),
             image.path + ": cannot be linked to " + image.link);
    }
    for (const std::string& hidden : HiddenFiles(images)) {
        view_.Remove({}, ("/" + hidden).c_str(), false);
    }
    view_.TakeChanges();
}

std::string DeviceFiles::MakeState() const {
    const std::string state = scratch_.path() + "/state";
    Check(mkdir(state.c_str(), 0700) == 0, state);
    return state;
}

void DeviceFiles::AttachBlockDevice(const std::string& path) {
    Done(view_.MakeBlockDevice(path), path);
}

std::string DeviceFiles::Outside(const std::string& path) const {
    Entry entry;
    const bool found = view_.Find(path, true, &entry) == 0 && entry.exists;
    return found ? entry.real : scratch_.path() + "/missing";
}

}  // namespace sandbox
