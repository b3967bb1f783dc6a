// SessionRecord: writes down everything that crosses the host boundary of one
// plugin, as JSON Lines, so that `qel-host replay` can play it against any
// build of the plugin without the simulator.
//
// The first line is the header (the format, the plugin and a hash of its API
// description, the host's command and options, the scenario and the seed).
// Every further line is one step with the host clock's time "t" and its kind
// "k". Steps the plugin causes (outputs) and steps the host gives it (inputs)
// keep the order they happened in; a plugin call and the host's work on the
// plugin's behalf open a bracket that a later step closes, so a replay knows
// which inputs belong inside which call:
//
// A payload (event data, a reply's body) equal to one of the last few long
// ones is written as "same": the number of the step that holds it (steps
// count from 1 after the header); resource events come in pairs and
// deliveries repeat what the plugin published, so this halves a draft.
//
//   inputs   start..started, deliver..delivered, fire..fired, call..answer,
//            destroy..destroyed, clock, and the reply that closes a request
//   outputs  emit, request..reply, log, schedule, wait, waited, turn..turned,
//            register, unregister, entry1, and the answer that closes a call
//
// Clock readings are inputs: the plugin asks the program's clock seam (see
// host/ClockSeam.h). On the instant clock of `demo --speed max` the recorder
// answers with the host's simulated time, so recordings of a scenario come
// out byte for byte the same on every run; on a real clock it passes the
// real reading through and writes it down.
//
// Ownership: owns its file. Threads: the host's thread.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/ClockSeam.h"
#include "host/HostRuntime.h"
#include "host/PluginLibrary.h"

namespace Orvan::Host {

inline constexpr const char* kSessionFormat = "qel-host session";
inline constexpr int kSessionVersion = 1;

// A hash of what the plugin says about its API (endpoints with their
// arguments, types with their fields and enumerators, events): "fnv1a64:"
// and 16 hexadecimal digits.
std::string ApiDescriptionHash(const PluginLibrary& library);

// The fields a request and a reply have in a step (",\"method\":..."), for
// the recorder and for the replay's comparisons alike.
void AppendRequestFields(std::string& line, const RestRequest& request);
void AppendReplyFields(std::string& line, const RestReply& reply, bool withBody = true);
// True when `text` is one whole JSON value, so it can stand in a line as is.
bool IsJsonText(const std::string& text);

// What the header says about the run besides the plugin.
struct SessionHeader {
    std::string command;  // "demo" or "serve"
    std::string scenario;
    uint64_t seed = 0;
    // The host's options as a JSON object.
    std::string optionsJson = "{}";
};

class SessionRecorder : public HostObserver, public HostInputObserver, public ClockSeamHandler {
public:
    SessionRecorder() = default;
    ~SessionRecorder() override;
    SessionRecorder(const SessionRecorder&) = delete;
    SessionRecorder& operator=(const SessionRecorder&) = delete;

    // Creates the file; false with `error` set when it cannot.
    bool Open(const std::string& path, const SessionHeader& header, std::string& error);
    // Writes the header and follows `plugin` from now on (call it between
    // Attach and Start).
    void Attach(HostRuntime& runtime, const PluginLibrary& library, uint32_t plugin);
    // Stops following and writes the last line, {"k":"end"}, without which
    // a replay takes the file for cut short. Call it while the runtime lives.
    void Detach();
    // Writes out what is buffered (before the process ends abruptly).
    void Flush() {
        if (file_ != nullptr) {
            std::fflush(file_);
        }
    }
    // Closes the file; false with `error` set when it could not be written
    // completely.
    bool Close(std::string& error);

    // Detaches `recorder` (may be null) when it goes out of scope.
    class Follow {
    public:
        explicit Follow(SessionRecorder* recorder) : recorder_(recorder) {}
        ~Follow() {
            if (recorder_ != nullptr) {
                recorder_->Detach();
            }
        }
        Follow(const Follow&) = delete;
        Follow& operator=(const Follow&) = delete;

    private:
        SessionRecorder* recorder_;
    };
    uint64_t Steps() const { return steps_; }

    // HostObserver.
    void OnPluginEvent(uint32_t plugin, const std::string& name, const std::string& json) override;
    void OnPluginRequest(uint32_t plugin, const RestRequest& request,
                         const RestReply& reply) override;
    void OnLog(uint32_t plugin, uint32_t level, const std::string& text) override;
    void OnDelayedCall(uint32_t plugin, const std::string& label, double delaySeconds) override;

    // HostInputObserver.
    void OnModuleCall(uint32_t plugin, const char* what, bool begins, bool result) override;
    void OnRegistration(uint32_t plugin, const std::string& pattern, uint32_t flags,
                        bool registers) override;
    void OnDeliver(uint32_t plugin, const std::string& pattern, const std::string& name,
                   const std::string& json, bool begins) override;
    void OnScheduled(uint32_t plugin, uint64_t call) override;
    void OnFire(uint32_t plugin, uint64_t call, const std::string& label, bool begins) override;
    void OnEndpointCall(uint32_t plugin, size_t endpoint, const RestRequest& request,
                        const RestReply* reply) override;
    void OnRequestBegins(uint32_t plugin, const RestRequest& request) override;
    void OnServeOnce(uint32_t plugin, bool begins) override;
    void OnWaitBegins(uint32_t plugin, const std::string& label, uint32_t value) override;
    void OnWaitEnds(uint32_t plugin, uint64_t turns) override;
    void OnEntry1(uint32_t plugin, uint32_t first, uint32_t second, uint32_t result) override;

    // ClockSeamHandler.
    int64_t Reading(Framework::Platform::ClockReading reading, int64_t real) override;

private:
    bool Mine(uint32_t plugin) const { return runtime_ != nullptr && plugin == plugin_; }
    // Starts a step line: {"t":...,"k":"KIND"
    std::string& Begin(const char* kind);
    void End();
    // `"field":json`, or `"same":STEP` when a recent payload was the same.
    void AppendPayload(const char* field, const std::string& json);
    void AppendReplyBody(const RestReply& reply);

    std::FILE* file_ = nullptr;
    SessionHeader header_;
    HostRuntime* runtime_ = nullptr;
    uint32_t plugin_ = 0;
    std::vector<const EndpointRecord*> endpoints_;
    std::string line_;
    uint64_t steps_ = 0;
    // A scheduled call is named by its rank among the "schedule" steps; the
    // host's own numbers lead to it.
    uint64_t schedules_ = 0;
    std::unordered_map<uint64_t, uint64_t> calls_;
    bool failed_ = false;
    struct RecentPayload {
        uint64_t step = 0;
        std::string text;
    };
    std::array<RecentPayload, 16> recent_{};
    size_t nextRecent_ = 0;
};

}  // namespace Orvan::Host
