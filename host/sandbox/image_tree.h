// The file system in an image as a tree. What was requested from the process that reads the image
// is cached, up to limits::kImageKept. All files belong to root. One thread at a time may use it.

#pragma once

#include <functional>
#include <memory>
#include <unordered_map>

#include "file_system.h"
#include "tree.h"

namespace sandbox {

// Open() copies a file whole, into a sealed file in memory; the caller checks its size before.
class ImageTree : public Tree {
  public:
    // Is called with damage, also if the image can no longer be read: the path in the image, and
    // what is wrong there. The call that met it then returns -EIO, or throws what this throws.
    using OnDamage = std::function<void(const std::string& path, const std::string& what)>;

    // `nothing` is a descriptor of an empty directory, which Open() opens in place of the tree's
    // directories; List() gives their names. The descriptor must stay open as long as this.
    ImageTree(std::unique_ptr<images::FileSystem> files, int nothing, OnDamage on_damage);

    long Status(const std::string& path, struct stat* status) const override;
    long Target(const std::string& path, std::string* target) const override;
    long List(const std::string& directory, std::vector<Listed>* names) const override;
    long Open(const std::string& path, int flags) const override;
    bool is_kernels() const override { return false; }

  private:
    using Names = std::unordered_map<std::string, uint64_t>;

    long Find(const std::string& path, uint64_t* node) const;
    void Enter(const std::string& path, uint64_t node) const;
    const Names& NamesIn(uint64_t directory) const;
    const images::Node& Look(uint64_t node) const;
    long OpenContent(const images::Node& node, int flags) const;
    long Guard(const std::string& path, const std::function<long()>& function) const;

    std::unique_ptr<images::FileSystem> files_;
    int nothing_;
    OnDamage on_damage_;
    mutable std::unordered_map<std::string, uint64_t> directories_;  // by path
    mutable std::unordered_map<uint64_t, std::string> places_;       // of these
    mutable std::unordered_map<uint64_t, Names> names_;
    mutable std::unordered_map<uint64_t, images::Node> nodes_;
    mutable size_t kept_ = 0;  // size of these caches, roughly, in bytes
};

}  // namespace sandbox
