// Inside the sandbox: reports all that the library does and init takes, as it happens. Ends the
// process, as EndAt() does, when it has opened or reported more than the limits allow.

#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <android-base/logging.h>

#include "boot/init_process.h"
#include "boot/load_recorder.h"
#include "boot/load_tracker.h"
#include "boot/message.h"
#include "boot/what_if.h"
#include "platform.h"

namespace extprop {

// Send(), Emit(), the observer's functions, OnLog() and OnCallback() may run on several threads at
// once; all others belong to the thread that performs the steps.
class Reporter : public platform::Observer, private LoadListener {
  public:
    // Sends events to the socket `channel`, which stays open, and of the lines of files those whose
    // names are `wanted`; no lines if that is an empty function. `last_file` must outlive this.
    Reporter(int channel, Detail detail, std::function<bool(const std::string& name)> wanted,
             LastFile* last_file)
            : channel_(channel),
              detail_(detail),
              wanted_(wanted),
              tracker_(this, std::move(wanted)),
              last_file_(last_file) {}

    // Sends the message; does nothing if the tool has closed the channel.
    void Send(Message message);

    // Sends the event unless the requested detail is Detail::kNothing.
    void Emit(Event event);

    // Call it when a step begins.
    void OnStep(const std::string& step);

    // Makes a record of what is read from now on: where these imports lead, and the values of the
    // watched properties. Both arguments must outlive this.
    void MakeRecord(const DeviceImports& imports, const std::set<std::string>& watched);

    // Returns what was recorded since the last call; nothing before MakeRecord().
    BootRecord TakeRecord();

    // Sets the property on behalf of the phone's system: a switch key, or the property of a step
    // set. Does not check whether init would accept it.
    void OnKey(const std::string& name, const std::string& value);

    // Makes the edit on behalf of another program on the phone. Ends the process with
    // kChangesFailed if it cannot be made.
    void OnWrite(const Edit& edit);

    // Call it in the library's callback; `frame` is the address of the callback's stack frame.
    // Makes init take the properties; those that it refuses are only reported.
    void OnCallback(int mode, PropertyMap properties, const void* frame);

    // Makes init take what the step's `operation` has loaded into init's own map, in the same way.
    void OnMap(const PropertyMap& loaded, const PropertyMap* map, const char* operation);

    // Makes init take the stored persistent properties, in the same way.
    void OnStored(const PropertyMap& stored);

    // Sets the property by which the installing service sends a request.
    void OnRequest(const std::string& name, const std::string& value);

    void OnLog(android::base::LogSeverity severity, const char* file, unsigned line,
               const char* message);

    // Call it when a step ends. Reports what is known only then.
    void OnStepEnd();

    // Reports the logo that was written since the last call: the file that was opened before the
    // splash partition, if the partition's content now begins with that file's.
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
    bool reports_events() const { return detail_ != Detail::kNothing; }
    bool follows_loads() const { return reports_events() || tracker_.notes_names(); }

    // Records a watched property's new value.
    void Note(const std::string& name, const std::string& value) const;

    bool IsReported(const std::string& name) const;
    PropertyMap Reported(PropertyMap properties) const;
    template <typename Properties>
    Handover Apply(Properties&& properties) const;

    void OnLoadBegun(LoadEvent event) override { Emit(std::move(event)); }
    void OnLinesRead(LinesRead lines) override { Send(std::move(lines)); }

    // What a running operation has read, in a traced boot.
    struct Read {
        std::vector<std::string> operations;
        OperationInput input;
    };
    void AddSmallFile(const char* path);
    void AddRead(std::vector<std::string> operations, OperationInput input);
    std::vector<OperationInput> TakeReads(const std::vector<std::string>& operations);
    void EmitIdle();

    std::mutex mutex_;
    std::mutex reads_mutex_;
    std::vector<Read> reads_;
    size_t emitted_bytes_ = 0;
    size_t opens_ = 0;
    std::atomic<uint64_t> opened_bytes_ = 0;
    int channel_;
    Detail detail_;
    std::function<bool(const std::string& name)> wanted_;
    LoadTracker tracker_;
    mutable std::mutex record_mutex_;
    std::optional<LoadRecorder> recorder_;
    const std::set<std::string>* watched_ = nullptr;
    mutable BootRecord record_;  // all that the recorder does not see
    LastFile* last_file_;
    std::string last_read_;
    std::string logo_source_;  // the last file opened before the splash partition
};

}  // namespace extprop
