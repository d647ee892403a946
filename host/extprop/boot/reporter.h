// Reports, inside the sandbox, everything that the library does and init takes, as it happens.

#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include <android-base/logging.h>

#include "boot/init_process.h"
#include "boot/load_recorder.h"
#include "boot/load_tracker.h"
#include "boot/message.h"
#include "boot/what_if.h"
#include "platform.h"

namespace extprop {

class Reporter : public platform::Observer, private LoadListener {
  public:
    // Sends to `channel`; the lines of files only if their names are `wanted`. `last_file` must
    // live as long as this.
    Reporter(int channel, Detail detail, std::function<bool(const std::string& name)> wanted,
             LastFile* last_file)
            : channel_(channel),
              detail_(detail),
              wanted_(wanted),
              tracker_(this, std::move(wanted)),
              last_file_(last_file) {}

    void Send(Message message);

    // Sends the event if so much detail is asked for.
    void Tell(Event event);

    // A step begins.
    void OnStep(const std::string& step);

    // Has a record made of what is read, of the imports in these files and of what the properties
    // of these names are given. Both have to outlive this.
    void MakeRecord(const DeviceImports& imports, const std::set<std::string>& watched);
    BootRecord TakeRecord();

    // The system sets a switch key, or whatever a step says.
    void OnKey(const std::string& name, const std::string& value);

    // Another writes a file. The process ends if it cannot be written.
    void OnWrite(const Edit& edit);

    // The callback of the library, called from the frame whose address is `frame` or one above.
    void OnCallback(int mode, PropertyMap properties, const void* frame);

    // init takes what the step loaded into its own map.
    void OnMap(const PropertyMap& loaded, const PropertyMap* map, const char* operation);

    // init takes the stored persistent properties.
    void OnStored(const PropertyMap& stored);

    void OnRequest(const std::string& name, const std::string& value);

    void OnLog(android::base::LogSeverity severity, const char* file, unsigned line,
               const char* message);

    // A step ends. Reports what is known then.
    void OnStepEnd();

    // Reports the logo that was written since the last time: the partition was opened for it after
    // its source, and begins with it now.
    void ReportLogo();

    LoadTracker* tracker() { return &tracker_; }

    void OnOpen(const char* path, int flags) override;
    void OnOpened(int fd) override;
    void OnLoad(const char* path, const char* filter, const PropertyMap* properties) override;
    void OnLoaded(const PropertyMap* properties, bool loaded) override;
    void OnPropertyGet(const std::string& name) override;
    void OnLookUp(const char* path, const char* name) override;
    void OnMounting(const char* source, const char* target) override;
    void OnMount(const char* source, const char* target, unsigned long flags, int result,
                 int error) override;
    void OnPropertySet(const std::string& name, const std::string& value) override;
    void OnRestorecon(const char* path, unsigned int flags, int result) override;

  private:
    bool tells_events() const { return detail_ != Detail::kNothing; }
    bool follows_loads() const { return tells_events() || tracker_.notes_names(); }

    // A property is given a value.
    void Note(const std::string& name, const std::string& value) const;

    bool IsTold(const std::string& name) const;
    PropertyMap Told(PropertyMap properties) const;
    template <typename Properties>
    Handover Apply(Properties&& properties) const;

    void OnLoadBegun(LoadEvent event) override { Tell(std::move(event)); }
    void OnLinesRead(LinesRead lines) override { Send(std::move(lines)); }

    // What the operations read that are at work, in a traced boot.
    struct Read {
        std::vector<std::string> operations;
        OperationInput input;
    };
    void AddSmallFile(const char* path);
    void AddRead(std::vector<std::string> operations, OperationInput input);
    std::vector<OperationInput> TakeReads(const std::vector<std::string>& operations);
    void TellIdle();

    std::mutex mutex_;
    std::mutex reads_mutex_;
    std::vector<Read> reads_;
    size_t told_ = 0;  // bytes
    size_t opens_ = 0;
    std::atomic<uint64_t> opened_bytes_ = 0;
    int channel_;
    Detail detail_;
    std::function<bool(const std::string& name)> wanted_;
    LoadTracker tracker_;
    mutable std::mutex record_mutex_;
    std::optional<LoadRecorder> recorder_;
    const std::set<std::string>* watched_ = nullptr;
    mutable BootRecord record_;  // what the recorder does not see
    LastFile* last_file_;
    std::string last_read_;
    std::string logo_source_;  // what was read before the splash partition was opened for output
};

}  // namespace extprop
