// Plays devices that its input describes, and prints the input again with the results of each boot.
// A difference between input and output is a change of the library's behaviour; the output is then
// the new version of the file.
//
//   # a comment
//   device                     a new device, without files
//   set NAME=VALUE             for all later boots, which keep what they hand over of persist.*
//   /path                      a file with the indented lines; "\" at the end: no line end
//   /path/                     a directory
//   /path -> TARGET            a link
//   remove /path
//   fail CALL PATH             each such call for the path fails in the next boot
//   boot STEP...
//   | the result

#include <errno.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include <android-base/strings.h>

#include "player.h"
#include "reliability.h"

namespace {

namespace fs = std::filesystem;

using android::base::StartsWith;
using player::Files;
using player::Life;
using player::Outcome;
using player::World;

class Device {
  public:
    void Set(const std::string& setting) {
        const size_t equals = setting.find('=');
        life_.properties[setting.substr(0, equals)] = setting.substr(equals + 1);
        persistent_.erase(setting.substr(0, equals));
    }

    // Makes the file, link or directory at `path`, in place of what is there.
    void Make(std::string path, const std::string& target, const std::string& content) {
        path = World::Outside(path);
        const bool is_directory = path.back() == '/';
        if (is_directory) path.pop_back();
        fs::create_directories(fs::path(path).parent_path());
        fs::remove_all(path);
        if (is_directory) {
            fs::create_directory(path);
        } else if (!target.empty()) {
            fs::create_symlink(target, path);
        } else {
            std::ofstream(path, std::ios::binary) << content;
        }
    }

    void Remove(const std::string& path) { fs::remove_all(World::Outside(path)); }

    void Fail(const std::string& call) {
        const size_t space = call.find(' ');
        fault_.name = call.substr(0, space);
        fault_.path = call.substr(space + 1);
        fault_.error = EIO;
    }

    void Boot(const std::string& steps) {
        life_.steps = android::base::Split(steps, " ");
        const Files before = World::Snapshot();
        const Outcome outcome = world_.Boot(life_, fault_, persistent_);
        fault_ = {};
        if (!outcome.death.empty()) Print("died: " + outcome.death);
        for (const std::string& event : outcome.events) Print(event);
        for (const std::string& value : outcome.values) {
            const auto [name, text] = std::pair(value.substr(0, value.find('=')), value);
            const bool is_told = StartsWith(value, "callback") ||
                                 outcome.handed.count(value) != 0 || Given(name) == value;
            if (!is_told) Print("= " + value);
        }
        for (const auto& [path, state] : before) {
            if (outcome.files.count(path) == 0) Print("gone " + path);
        }
        for (const auto& [path, state] : outcome.files) {
            auto known = before.find(path);
            if (known != before.end() && known->second == state) continue;
            Print((known == before.end() ? "made " : "changed ") + path + ": " + state);
        }
        for (const auto& [name, value] : outcome.persistent) persistent_[name] = value;
    }

  private:
    std::string Given(const std::string& name) const {
        for (const auto* given : {&persistent_, &life_.properties}) {
            auto entry = given->find(name);
            if (entry != given->end()) return name + "=" + entry->second;
        }
        return "";
    }

    static void Print(const std::string& text) {
        std::cout << "| " << android::base::StringReplace(text, "\n", "\\n", true) << "\n";
    }

    World world_{{}};
    Life life_ = {"case", {}, {}, {}};
    faults::Fault fault_;  // of the next boot
    player::PropertyMap persistent_;
};

std::vector<std::string> g_lines;

int Reject(size_t index, const char* why) {
    std::cerr << "line " << index + 1 << ", '" << g_lines[index] << "', is " << why << "\n";
    return 1;
}

int Play(int, char**) {
    const std::vector<std::string>& lines = g_lines;
    std::unique_ptr<Device> device;
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string& line = lines[i];
        if (StartsWith(line, "|")) continue;
        std::cout << line << "\n";
        const std::string rest = line.substr(std::min(line.size(), line.find(' ') + 1));
        if (line.empty() || line[0] == '#') continue;
        if (line == "device") {
            device.reset();  // the previous device's files must be removed first
            device = std::make_unique<Device>();
        } else if (device == nullptr) {
            return Reject(i, "before the first device");
        } else if (StartsWith(line, "set ")) {
            device->Set(rest);
        } else if (StartsWith(line, "remove ")) {
            device->Remove(rest);
        } else if (StartsWith(line, "fail ")) {
            device->Fail(rest);
        } else if (StartsWith(line, "boot ")) {
            device->Boot(rest);
        } else if (StartsWith(line, "/")) {
            const size_t arrow = line.find(" -> ");
            std::string content;
            for (; i + 1 < lines.size() && StartsWith(lines[i + 1], "  "); ++i) {
                std::cout << lines[i + 1] << "\n";
                content += lines[i + 1].substr(2) + "\n";
            }
            if (android::base::EndsWith(content, "\\\n")) content.resize(content.size() - 2);
            device->Make(line.substr(0, arrow),
                         arrow == std::string::npos ? "" : line.substr(arrow + 4), content);
        } else {
            return Reject(i, "not known");
        }
    }
    return 0;
}

}  // namespace

int Cases(int, char**) {
    // Read here, as the private process has no standard input.
    for (std::string line; std::getline(std::cin, line);) g_lines.push_back(line);
    return player::RunPrivately(Play, 0, nullptr);
}
