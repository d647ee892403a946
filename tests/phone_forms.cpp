#include "phone_forms.h"

#include <memory>
#include <stdexcept>

#include <archive.h>
#include <archive_entry.h>

namespace {

// Returns a field of a protocol buffer message, of the type bytes.
std::string Field(int number, const std::string& bytes) {
    std::string field(1, static_cast<char>(number << 3 | 2));
    size_t size = bytes.size();
    for (; size >= 0x80; size >>= 7) field += static_cast<char>((size & 0x7f) | 0x80);
    return field + static_cast<char>(size) + bytes;
}

}  // namespace

std::string ListedForm(const Properties& properties) {
    std::string text;
    for (const auto& [name, value] : properties) text += "[" + name + "]: [" + value + "]\n";
    return text;
}

std::string PropertyFileForm(const Properties& properties) {
    std::string text = "\n# a comment\n";
    for (const auto& [name, value] : properties) text += name + "=" + value + "\n";
    return text;
}

std::string BugReportForm(const Properties& properties) {
    const std::string rule(56, '=');
    return rule + "\n== dumpstate: 2026-01-02 03:04:05\n" + rule +
           "\n\nBuild: x\n------ UPTIME (uptime) ------\n[not.a]: [property]\n"
           "------ 0.012s was the duration of 'UPTIME' ------\n"
           "------ SYSTEM PROPERTIES (getprop) ------\n" +
           ListedForm(properties) +
           "------ 0.031s was the duration of 'SYSTEM PROPERTIES' ------\n"
           "[nor.this]: [one]\n";
}

std::string StoreForm(const Properties& properties) {
    std::string store;
    for (const auto& [name, value] : properties)
        store += Field(1, Field(1, name) + Field(2, value));
    return store;
}

std::string Zip(const std::map<std::string, std::string>& files) {
    constexpr size_t kOverhead = 1024;
    size_t size = kOverhead;
    for (const auto& [name, content] : files) size += content.size() + kOverhead;
    std::string bytes(size, '\0');
    size_t used = 0;
    const std::unique_ptr<archive, int (*)(archive*)> zip(archive_write_new(), archive_write_free);
    archive_write_set_format_zip(zip.get());
    archive_write_open_memory(zip.get(), bytes.data(), bytes.size(), &used);
    for (const auto& [name, content] : files) {
        const std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(archive_entry_new(),
                                                                             archive_entry_free);
        archive_entry_set_pathname(entry.get(), name.c_str());
        archive_entry_set_filetype(entry.get(), AE_IFREG);
        archive_entry_set_perm(entry.get(), 0644);
        archive_entry_set_size(entry.get(), static_cast<la_int64_t>(content.size()));
        archive_write_header(zip.get(), entry.get());
        archive_write_data(zip.get(), content.data(), content.size());
    }
    if (archive_write_close(zip.get()) != ARCHIVE_OK) throw std::runtime_error("zip");
    bytes.resize(used);
    return bytes;
}
