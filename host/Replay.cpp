#include "host/Replay.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "host/ClockSeam.h"
#include "host/HostJson.h"
#include "host/SessionRecord.h"

namespace Orvan::Host {

namespace {

using Framework::Platform::ClockReading;
using rapidjson::Value;

enum class Kind {
    Start,
    Started,
    Destroy,
    Destroyed,
    Deliver,
    Delivered,
    Fire,
    Fired,
    Call,
    Answer,
    Clock,
    Request,
    Reply,
    Turn,
    Turned,
    Emit,
    Log,
    Schedule,
    Wait,
    Waited,
    Register,
    Unregister,
    Entry1,
    End,
};

enum class Field { Text, Number, Whole, Bool, Any };

struct KindInfo {
    Kind kind;
    const char* name;
    bool input;          // the host gives it (or it closes an output's bracket)
    const char* closer;  // the kind that closes its bracket, or null
    std::vector<std::pair<const char*, Field>> required;
};

const std::vector<KindInfo>& Kinds() {
    static const std::vector<KindInfo> kinds = {
        {Kind::Start, "start", true, "started", {}},
        {Kind::Started, "started", false, nullptr, {{"result", Field::Bool}}},
        {Kind::Destroy, "destroy", true, "destroyed", {}},
        {Kind::Destroyed, "destroyed", false, nullptr, {}},
        {Kind::Deliver,
         "deliver",
         true,
         "delivered",
         {{"pattern", Field::Text}, {"name", Field::Text}, {"data", Field::Any}}},
        {Kind::Delivered, "delivered", false, nullptr, {}},
        {Kind::Fire, "fire", true, "fired", {{"call", Field::Whole}, {"label", Field::Text}}},
        {Kind::Fired, "fired", false, nullptr, {}},
        {Kind::Call,
         "call",
         true,
         "answer",
         {{"endpoint", Field::Whole}, {"method", Field::Text}, {"url", Field::Text}}},
        {Kind::Answer, "answer", false, nullptr, {{"status", Field::Whole}}},
        {Kind::Clock, "clock", true, nullptr, {{"clock", Field::Text}, {"value", Field::Number}}},
        {Kind::Request, "request", false, "reply", {{"method", Field::Text}, {"url", Field::Text}}},
        {Kind::Reply, "reply", true, nullptr, {{"status", Field::Whole}}},
        {Kind::Turn, "turn", false, "turned", {}},
        {Kind::Turned, "turned", true, nullptr, {}},
        {Kind::Emit, "emit", false, nullptr, {{"name", Field::Text}, {"data", Field::Any}}},
        {Kind::Log, "log", false, nullptr, {{"level", Field::Whole}, {"text", Field::Text}}},
        {Kind::Schedule,
         "schedule",
         false,
         nullptr,
         {{"call", Field::Whole}, {"label", Field::Text}, {"delay", Field::Number}}},
        {Kind::Wait, "wait", false, nullptr, {{"label", Field::Text}, {"value", Field::Whole}}},
        {Kind::Waited, "waited", false, nullptr, {{"turns", Field::Whole}}},
        {Kind::Register,
         "register",
         false,
         nullptr,
         {{"name", Field::Text}, {"flags", Field::Whole}}},
        {Kind::Unregister, "unregister", false, nullptr, {{"name", Field::Text}}},
        {Kind::Entry1,
         "entry1",
         false,
         nullptr,
         {{"first", Field::Whole}, {"second", Field::Whole}, {"result", Field::Whole}}},
        {Kind::End, "end", true, nullptr, {}},
    };
    return kinds;
}

const KindInfo* FindKind(std::string_view name) {
    for (const KindInfo& info : Kinds()) {
        if (name == info.name) {
            return &info;
        }
    }
    return nullptr;
}

const KindInfo& Info(Kind kind) {
    return Kinds()[static_cast<size_t>(kind)];
}

bool FieldFits(const Value& value, Field field) {
    switch (field) {
        case Field::Text:
            return value.IsString();
        case Field::Number:
            return value.IsNumber();
        case Field::Whole:
            return value.IsUint64();
        case Field::Bool:
            return value.IsBool();
        case Field::Any:
            return true;
    }
    return false;
}

const char* FieldName(Field field) {
    switch (field) {
        case Field::Text:
            return "a text";
        case Field::Number:
            return "a number";
        case Field::Whole:
            return "a whole number";
        case Field::Bool:
            return "true or false";
        case Field::Any:
            return "a value";
    }
    return "";
}

std::string Write(const Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

std::string Shorten(std::string text, size_t limit = 160) {
    if (text.size() > limit) {
        text.resize(limit - 3);
        text += "...";
    }
    return text;
}

const Value* Member(const Value& object, const char* name) {
    if (!object.IsObject()) {
        return nullptr;
    }
    auto found = object.FindMember(name);
    return found != object.MemberEnd() ? &found->value : nullptr;
}

// The member, or null when it is missing.
const Value& At(const Value& object, const char* name) {
    static const Value none;
    const Value* value = Member(object, name);
    return value != nullptr ? *value : none;
}

std::string TextOf(const Value& object, const char* name) {
    const Value* value = Member(object, name);
    return value != nullptr && value->IsString()
               ? std::string(value->GetString(), value->GetStringLength())
               : std::string();
}

uint64_t WholeOf(const Value& object, const char* name) {
    const Value* value = Member(object, name);
    return value != nullptr && value->IsUint64() ? value->GetUint64() : 0;
}

// Field-level differences of two values; "t" and "k" of a step are left out.
void Differences(const Value& expected, const Value& came, const std::string& path,
                 std::vector<std::string>& out) {
    constexpr size_t kLimit = 24;
    if (out.size() >= kLimit) {
        return;
    }
    const std::string where = path.empty() ? "(the value)" : path;
    if (expected.IsObject() && came.IsObject()) {
        for (auto& member : expected.GetObject()) {
            const std::string name(member.name.GetString(), member.name.GetStringLength());
            if (path.empty() && (name == "t" || name == "k")) {
                continue;
            }
            const std::string inner = path.empty() ? name : path + "." + name;
            const Value* other = Member(came, name.c_str());
            if (other == nullptr) {
                out.push_back(inner + ": expected " + Shorten(Write(member.value)) +
                              ", came nothing");
            } else {
                Differences(member.value, *other, inner, out);
            }
            if (out.size() >= kLimit) {
                return;
            }
        }
        for (auto& member : came.GetObject()) {
            const std::string name(member.name.GetString(), member.name.GetStringLength());
            if (path.empty() && (name == "t" || name == "k")) {
                continue;
            }
            if (Member(expected, name.c_str()) == nullptr) {
                out.push_back((path.empty() ? name : path + "." + name) + ": not expected, came " +
                              Shorten(Write(member.value)));
            }
        }
        return;
    }
    if (expected.IsArray() && came.IsArray()) {
        const size_t common = std::min(expected.Size(), came.Size());
        for (size_t i = 0; i < common && out.size() < kLimit; ++i) {
            Differences(expected[static_cast<rapidjson::SizeType>(i)],
                        came[static_cast<rapidjson::SizeType>(i)],
                        path + "[" + std::to_string(i) + "]", out);
        }
        if (expected.Size() != came.Size()) {
            out.push_back(where + ": expected " + std::to_string(expected.Size()) +
                          " elements, came " + std::to_string(came.Size()));
        }
        return;
    }
    if (expected != came) {
        out.push_back(where + ": expected " + Shorten(Write(expected)) + ", came " +
                      Shorten(Write(came)));
    }
}

}  // namespace

// ---- The session
// ---------------------------------------------------------------------------------

struct Step {
    Kind kind = Kind::End;
    size_t line = 0;
    double time = 0.0;
    Value value;       // the whole line
    size_t close = 0;  // for a bracket's opener: the index of its closer
};

class Session {
public:
    rapidjson::MemoryPoolAllocator<> pool{1 << 16};
    Value header;
    std::vector<Step> steps;
    std::string name;

    // The index after the bracket that `index` opens (or after the step).
    size_t Next(size_t index) const {
        const Step& step = steps[index];
        return Info(step.kind).closer != nullptr ? step.close + 1 : index + 1;
    }
};

namespace {

std::string Summary(const Step& step) {
    const Value& v = step.value;
    std::string text = Info(step.kind).name;
    switch (step.kind) {
        case Kind::Deliver:
        case Kind::Emit:
            text += " " + TextOf(v, "name") + " " + Shorten(Write(At(v, "data")), 100);
            break;
        case Kind::Fire:
        case Kind::Wait:
            text += " " + TextOf(v, "label");
            break;
        case Kind::Schedule:
            text += " " + TextOf(v, "label") + " in " + Write(At(v, "delay")) + " s";
            break;
        case Kind::Call:
        case Kind::Request:
            text += " " + TextOf(v, "method") + " " + TextOf(v, "url");
            if (const Value* args = Member(v, "args")) {
                text += " " + Shorten(Write(*args), 100);
            }
            break;
        case Kind::Answer:
        case Kind::Reply:
            text += " " + std::to_string(WholeOf(v, "status"));
            if (const Value* body = Member(v, "body")) {
                text += " " + Shorten(Write(*body), 100);
            } else if (const Value* error = Member(v, "error")) {
                text += " " + Shorten(Write(*error), 100);
            }
            break;
        case Kind::Log:
            text += " level " + std::to_string(WholeOf(v, "level")) + " " +
                    Shorten(Write(At(v, "text")), 140);
            break;
        case Kind::Clock:
            text += " " + TextOf(v, "clock") + " " + Write(At(v, "value"));
            break;
        case Kind::Register:
        case Kind::Unregister:
            text += " " + TextOf(v, "name");
            break;
        case Kind::Started:
            text += Write(At(v, "result")) == "true" ? " (the plugin started)"
                                                     : " (the plugin refused)";
            break;
        default:
            break;
    }
    return text;
}

// The summary of what came, given as the fields of a step.
std::string CameSummary(Kind kind, const std::string& json) {
    rapidjson::Document document;
    document.Parse(json.c_str(), json.size());
    if (document.HasParseError() || !document.IsObject()) {
        return Info(kind).name;
    }
    Step step;
    step.kind = kind;
    step.value.CopyFrom(document, document.GetAllocator());
    return Summary(step);
}

}  // namespace

void SessionDeleter::operator()(Session* session) const {
    delete session;
}

SessionPointer ParseSession(const std::string& text, std::string& error) {
    SessionPointer session(new Session);
    size_t lineNumber = 0;
    size_t start = 0;
    std::vector<size_t> open;  // indices of brackets not yet closed
    bool ended = false;
    while (start < text.size()) {
        size_t newline = text.find('\n', start);
        const bool complete = newline != std::string::npos;
        if (!complete) {
            newline = text.size();
        }
        ++lineNumber;
        const std::string_view line(text.data() + start, newline - start);
        start = newline + 1;
        const std::string where = "line " + std::to_string(lineNumber) + ": ";
        if (line.find_first_not_of(" \t\r") == std::string_view::npos) {
            error = where + "an empty line";
            return nullptr;
        }
        rapidjson::Document document(&session->pool);
        const std::string copy(line);
        rapidjson::StringStream stream(copy.c_str());
        document.ParseStream<rapidjson::kParseIterativeFlag | rapidjson::kParseStopWhenDoneFlag>(
            stream);
        if (document.HasParseError()) {
            error = where + (lineNumber == 1 ? "not a qel-host session: " : "") +
                    "not JSON: " + rapidjson::GetParseError_En(document.GetParseError()) +
                    " at column " + std::to_string(document.GetErrorOffset() + 1) +
                    (complete ? "" : " (the file is cut short in this line)");
            return nullptr;
        }
        if (copy.find_first_not_of(" \t\r", stream.Tell()) != std::string::npos) {
            error = where + "more than one JSON value";
            return nullptr;
        }
        if (!document.IsObject()) {
            error = where + "not a JSON object";
            return nullptr;
        }
        if (lineNumber == 1) {
            const Value* format = Member(document, "format");
            if (format == nullptr || !format->IsString() ||
                kSessionFormat != TextOf(document, "format")) {
                error = where + "not a qel-host session (the first line names no \"format\": \"" +
                        std::string(kSessionFormat) + "\")";
                return nullptr;
            }
            const Value* version = Member(document, "version");
            if (version == nullptr || !version->IsInt() || version->GetInt() != kSessionVersion) {
                error = where + "session format version " +
                        (version != nullptr ? Write(*version) : std::string("(none)")) +
                        " is not one this host reads (it reads version " +
                        std::to_string(kSessionVersion) + ")";
                return nullptr;
            }
            const Value* plugin = Member(document, "plugin");
            if (plugin == nullptr || !plugin->IsObject() || !Member(*plugin, "description")) {
                error = where + "the header names no plugin with its API description";
                return nullptr;
            }
            session->header.Swap(document);
            continue;
        }
        if (ended) {
            error = where + "a step after \"end\"";
            return nullptr;
        }
        const Value* kindValue = Member(document, "k");
        const Value* time = Member(document, "t");
        if (kindValue == nullptr || !kindValue->IsString()) {
            error = where + "a step without its kind \"k\"";
            return nullptr;
        }
        const KindInfo* info = FindKind(kindValue->GetString());
        if (info == nullptr) {
            error = where + "an unknown kind of step \"" + kindValue->GetString() + "\"";
            return nullptr;
        }
        if (const Value* same = Member(document, "same")) {
            // A payload written once before: it becomes this step's own.
            const char* field = info->kind == Kind::Emit || info->kind == Kind::Deliver   ? "data"
                                : info->kind == Kind::Reply || info->kind == Kind::Answer ? "body"
                                                                                          : nullptr;
            const uint64_t from = same->IsUint64() ? same->GetUint64() : 0;
            const Value* payload = nullptr;
            if (from >= 1 && from <= session->steps.size()) {
                const Value& earlier = session->steps[from - 1].value;
                payload = Member(earlier, "data") != nullptr ? Member(earlier, "data")
                                                             : Member(earlier, "body");
            }
            if (field == nullptr || payload == nullptr || Member(document, field) != nullptr) {
                error = where +
                        "\"same\" must name an earlier step with data or a body, in a "
                        "step of an event or a reply without its own";
                return nullptr;
            }
            Value shared(*payload, session->pool);
            document.RemoveMember("same");
            document.AddMember(Value(field, session->pool), shared, session->pool);
        }
        if (time == nullptr || !time->IsNumber() || !std::isfinite(time->GetDouble())) {
            error = where + "a \"" + info->name + "\" step without its time \"t\"";
            return nullptr;
        }
        for (const auto& [name, field] : info->required) {
            const Value* value = Member(document, name);
            if (value == nullptr || !FieldFits(*value, field)) {
                error = where + "a \"" + info->name + "\" step needs \"" + name + "\" (" +
                        FieldName(field) + ")";
                return nullptr;
            }
        }
        Step step;
        step.kind = info->kind;
        step.line = lineNumber;
        step.time = time->GetDouble();
        step.value.Swap(document);
        const size_t index = session->steps.size();
        // Closers close the innermost open bracket, and only their own.
        for (const KindInfo& other : Kinds()) {
            if (other.closer != nullptr && std::strcmp(other.closer, info->name) == 0) {
                if (open.empty() || session->steps[open.back()].kind != other.kind) {
                    error = where + "\"" + info->name + "\" closes no \"" + other.name + "\"" +
                            (open.empty()
                                 ? std::string()
                                 : " (the open bracket is the \"" +
                                       std::string(Info(session->steps[open.back()].kind).name) +
                                       "\" on line " +
                                       std::to_string(session->steps[open.back()].line) + ")");
                    return nullptr;
                }
                session->steps[open.back()].close = index;
                open.pop_back();
                break;
            }
        }
        if (info->kind == Kind::End) {
            if (!open.empty()) {
                error = where + "\"end\" while the \"" +
                        std::string(Info(session->steps[open.back()].kind).name) + "\" on line " +
                        std::to_string(session->steps[open.back()].line) + " is still open";
                return nullptr;
            }
            ended = true;
        }
        if (info->closer != nullptr) {
            open.push_back(index);
        }
        session->steps.push_back(std::move(step));
    }
    if (lineNumber == 0) {
        error = "line 1: an empty file, not a session";
        return nullptr;
    }
    if (!ended) {
        std::string what = "line " + std::to_string(lineNumber) +
                           ": the session is cut short after this line (no \"end\"";
        if (!open.empty()) {
            what += "; the \"" + std::string(Info(session->steps[open.back()].kind).name) +
                    "\" on line " + std::to_string(session->steps[open.back()].line) +
                    " is never closed";
        }
        error = what + ")";
        return nullptr;
    }
    return session;
}

SessionPointer ReadSession(const std::string& path, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot open " + path + ": " + std::strerror(errno);
        return nullptr;
    }
    std::ostringstream text;
    text << in.rdbuf();
    auto session = ParseSession(text.str(), error);
    if (session != nullptr) {
        const size_t slash = path.find_last_of("/\\");
        session->name = slash == std::string::npos ? path : path.substr(slash + 1);
    }
    return session;
}

// ---- The replaying host
// ---------------------------------------------------------------------------

namespace {

std::string Text(const char* text) {
    return text != nullptr ? text : "";
}

class Replayer : public ClockSeamHandler {
public:
    Replayer(const Session& session, PluginLibrary& library, const ReplayOptions& options)
        : session_(session), steps_(session.steps), library_(library), options_(options) {
        table_.self = this;
        HostApi& api = table_.api;
        api.Request = &Replayer::RequestEntry;
        api.Entry1 = &Replayer::Entry1;
        api.EmitEvent = &Replayer::EmitEntry;
        api.RegisterEvent = &Replayer::RegisterEntry;
        api.UnregisterEvent = &Replayer::UnregisterEntry;
        api.ScheduleCall = &Replayer::ScheduleEntry;
        api.ServeOnce = &Replayer::ServeOnceEntry;
        api.BeginWait = &Replayer::BeginWaitEntry;
        api.EndWait = &Replayer::EndWaitEntry;
        api.WriteLog = &Replayer::WriteLogEntry;
        endpoints_ = library.Endpoints();
    }

    void Run(ReplayResult& result) {
        result_ = &result;
        SetClockSeamHandler(this);
        RunInputs(steps_.size());
        // A replay that stopped early still ends the module, while this
        // host can take its last calls (without judging them).
        finished_ = true;
        if (!released_) {
            released_ = true;
            library_.ReleaseModule();
        }
        SetClockSeamHandler(nullptr);
        result.steps = steps_.size();
    }

    int64_t Reading(ClockReading reading, int64_t real) override {
        const char* name = reading == ClockReading::System ? "system" : "monotonic";
        std::string came = "{\"clock\":\"" + std::string(name) + "\"}";
        const Step* step = Expect(Kind::Clock, came,
                                  [&](const Step& s) { return TextOf(s.value, "clock") == name; });
        if (step == nullptr) {
            return real;
        }
        if (TextOf(step->value, "clock") != name) {
            Diverge(static_cast<size_t>(step - steps_.data()), Summary(*step),
                    std::string("a reading of the ") + name + " clock");
            return real;
        }
        const Value& value = step->value["value"];
        return value.IsInt64() ? value.GetInt64() : static_cast<int64_t>(value.GetDouble());
    }

private:
    struct Table {
        HostApi api;
        Replayer* self;
    };
    static Replayer& Self(HostApi* api) { return *reinterpret_cast<Table*>(api)->self; }

    size_t FrameEnd() const { return frames_.empty() ? steps_.size() : frames_.back(); }

    void Diverge(size_t index, std::string expected, std::string came,
                 std::vector<std::string> differences = {}) {
        Divergence divergence;
        const size_t at = std::min(index, steps_.size() - 1);
        divergence.step = at + 1;
        divergence.line = steps_[at].line;
        divergence.time = steps_[at].time;
        divergence.expected = std::move(expected);
        divergence.came = std::move(came);
        divergence.differences = std::move(differences);
        for (size_t i = at >= 3 ? at - 3 : 0; i < at; ++i) {
            char head[64];
            std::snprintf(head, sizeof head, "step %zu  t=%.3f  ", i + 1, steps_[i].time);
            divergence.before.push_back(head + Summary(steps_[i]));
        }
        result_->divergences.push_back(std::move(divergence));
    }

    std::string Expected(size_t index) const {
        if (index < FrameEnd()) {
            return Summary(steps_[index]);
        }
        if (frames_.empty() || index >= steps_.size()) {
            return "the end of the session";
        }
        return "the plugin to return (" + Summary(steps_[index]) + ")";
    }

    // The recorded step for an output of `kind` the plugin makes now: the
    // next step when it is of that kind, else the next of that kind with
    // the same key at this level (the steps skipped are a divergence), else
    // none (the output is one).
    const Step* Expect(Kind kind, const std::string& came,
                       const std::function<bool(const Step&)>& sameKey, bool keyFirst = false) {
        if (finished_) {
            return nullptr;
        }
        const size_t end = FrameEnd();
        if (index_ < end && steps_[index_].kind == kind && (!keyFirst || sameKey(steps_[index_]))) {
            return &steps_[index_++];
        }
        for (size_t j = index_; j < end; j = session_.Next(j)) {
            if (steps_[j].kind == kind && sameKey(steps_[j])) {
                Diverge(index_, Expected(index_),
                        CameSummary(kind, came) + " (" + std::to_string(j - index_) +
                            " recorded steps did not come before it)");
                index_ = j + 1;
                return &steps_[j];
            }
        }
        if (keyFirst && index_ < end && steps_[index_].kind == kind) {
            return &steps_[index_++];
        }
        Diverge(index_, Expected(index_), CameSummary(kind, came));
        return nullptr;
    }

    // Compares what came with the recorded step, field by field.
    void Compare(const Step& step, const std::string& cameJson) {
        rapidjson::Document came;
        came.Parse(cameJson.c_str(), cameJson.size());
        if (came.HasParseError()) {
            Diverge(static_cast<size_t>(&step - steps_.data()), Summary(step), Shorten(cameJson));
            return;
        }
        std::vector<std::string> differences;
        Differences(step.value, came, "", differences);
        if (!differences.empty()) {
            Step shown;
            shown.kind = step.kind;
            shown.value.CopyFrom(came, came.GetAllocator());
            shown.value.AddMember("t", 0, came.GetAllocator());
            Diverge(static_cast<size_t>(&step - steps_.data()), Summary(step), Summary(shown),
                    std::move(differences));
        }
    }

    // Runs the inputs up to `end` (exclusive): the top level or a bracket the
    // plugin opened (a turn, a request).
    void RunInputs(size_t end) {
        frames_.push_back(end);
        while (index_ < end) {
            if (!options_.keepGoing && !result_->divergences.empty() && frames_.size() == 1) {
                break;
            }
            const size_t at = index_;
            const Step& step = steps_[at];
            switch (step.kind) {
                case Kind::Start:
                    Start(at);
                    break;
                case Kind::Destroy:
                    Destroy(at);
                    break;
                case Kind::Deliver:
                    Deliver(at);
                    break;
                case Kind::Fire:
                    Fire(at);
                    break;
                case Kind::Call:
                    Call(at);
                    break;
                case Kind::End:
                    index_ = end;
                    break;
                default:
                    // An output while the plugin is not running: it did not come.
                    Diverge(at, Summary(step), "nothing: the plugin was not running");
                    index_ = session_.Next(at);
                    break;
            }
        }
        frames_.pop_back();
    }

    // Around a call into the plugin for the input at `at`: afterwards the
    // recording must stand at the bracket's closer.
    template <typename Call>
    void Bracket(size_t at, Call&& call) {
        const size_t close = steps_[at].close;
        index_ = at + 1;
        frames_.push_back(close);
        call();
        frames_.pop_back();
        if (index_ < close) {
            Diverge(index_, Summary(steps_[index_]), "the plugin returned");
        }
        index_ = close + 1;
    }

    void Start(size_t at) {
        const PluginLoadRecord& record = library_.Record();
        link_ = HostLink{&table_.api, 1};
        bool started = false;
        Bracket(at, [&] { started = record.callbacks->StartModule(record.module, &link_) != 0; });
        Compare(steps_[steps_[at].close],
                std::string("{\"result\":") + (started ? "true" : "false") + "}");
    }

    void Destroy(size_t at) {
        released_ = true;
        Bracket(at, [&] { library_.ReleaseModule(); });
    }

    void Deliver(size_t at) {
        const Value& v = steps_[at].value;
        const std::string pattern = TextOf(v, "pattern");
        auto found = registrations_.find(pattern);
        if (found == registrations_.end()) {
            Diverge(at, Summary(steps_[at]),
                    "the plugin follows no \"" + pattern + "\" to deliver it to");
            index_ = steps_[at].close + 1;
            return;
        }
        const HostEventCallback callback = found->second.first;
        void* context = found->second.second;
        const std::string name = TextOf(v, "name");
        HostValueHolder payload;
        std::string error;
        JsonToHostValue(Write(At(v, "data")), payload.Get(), error);
        Bracket(at, [&] {
            HostEvent event{};
            event.name = name.c_str();
            event.payload = payload.Get();
            event.context = context;
            callback(&event);
        });
    }

    void Fire(size_t at) {
        const uint64_t call = WholeOf(steps_[at].value, "call");
        auto found = calls_.find(call);
        if (found == calls_.end()) {
            Diverge(at, Summary(steps_[at]), "the plugin scheduled no such call");
            index_ = steps_[at].close + 1;
            return;
        }
        const HostDelayedCallback callback = found->second.first;
        void* context = found->second.second;
        calls_.erase(found);
        Bracket(at, [&] { callback(context); });
    }

    void Call(size_t at) {
        const Value& v = steps_[at].value;
        const uint64_t index = WholeOf(v, "endpoint");
        const std::string method = TextOf(v, "method");
        const EndpointRecord* endpoint = index < endpoints_.size() ? endpoints_[index] : nullptr;
        // The recorded route names the endpoint wherever it now stands.
        if (const Value* route = Member(v, "route"); route != nullptr && route->IsString()) {
            endpoint = nullptr;
            for (const EndpointRecord* candidate : endpoints_) {
                const char* own = candidate->method == kHostMethodDirectCall
                                      ? candidate->function.name
                                      : candidate->urlTemplate;
                if (MethodName(candidate->method) == method && own != nullptr &&
                    route->GetString() == std::string_view(own)) {
                    endpoint = candidate;
                    break;
                }
            }
        }
        if (endpoint == nullptr || endpoint->dispatch == nullptr ||
            MethodName(endpoint->method) != method) {
            Diverge(at, Summary(steps_[at]),
                    "the plugin has no endpoint for " + method + " " +
                        (Member(v, "route") != nullptr ? TextOf(v, "route") : TextOf(v, "url")));
            index_ = steps_[at].close + 1;
            return;
        }
        RestRequest request;
        request.method = MethodCode(method);
        request.uri = TextOf(v, "url");
        request.functionName = TextOf(v, "function");
        request.contentType = TextOf(v, "contentType");
        request.caller = static_cast<uint32_t>(WholeOf(v, "caller"));
        if (const Value* body = Member(v, "body"); body != nullptr && body->IsString()) {
            request.hasBody = true;
            request.body.assign(body->GetString(), body->GetStringLength());
        }
        if (const Value* headers = Member(v, "headers"); headers != nullptr && headers->IsArray()) {
            for (const Value& pair : headers->GetArray()) {
                if (pair.IsArray() && pair.Size() == 2 && pair[0].IsString() &&
                    pair[1].IsString()) {
                    request.headers.emplace_back(pair[0].GetString(), pair[1].GetString());
                }
            }
        }
        if (const Value* args = Member(v, "args"); args != nullptr && args->IsArray()) {
            for (const Value& argument : args->GetArray()) {
                RestArgument rest;
                if (!argument.IsObject()) {
                    continue;
                }
                rest.name = TextOf(argument, "name");
                if (const Value* value = Member(argument, "value")) {
                    rest.json = Write(*value);
                } else {
                    rest.json = TextOf(argument, "text");
                }
                request.arguments.push_back(std::move(rest));
            }
        }
        RestReply reply;
        Bracket(at, [&] { reply = CallPluginEndpoint(*endpoint, request); });
        std::string came = "{";
        AppendReplyFields(came, reply);
        came[1] = ' ';  // the fields start with a comma
        Compare(steps_[steps_[at].close], came + "}");
    }

    // The plugin waits for what the recording never gives: the run cannot
    // go on, and the plugin cannot be left mid-call.
    [[noreturn]] void Stall(const std::string& why);

    // ---- The ten entries ---------------------------------------------------------------------

    static void QEL_HOST_CALL RequestEntry(HostApi* api, HostResponse* reply,
                                           HostRequest* hostRequest) {
        Replayer& self = Self(api);
        size_t unreadable = 0;
        std::string unreadableWhy;
        const RestRequest request = ReadPluginRequest(*hostRequest, 1, unreadable, unreadableWhy);
        std::string came = "{\"k\":\"request\"";
        AppendRequestFields(came, request);
        came += "}";
        rapidjson::Document cameValue;
        cameValue.Parse(came.c_str(), came.size());
        auto key = [&](const Step& step) {
            for (const char* name : {"method", "url", "function", "args"}) {
                const Value* a = Member(step.value, name);
                const Value* b = Member(cameValue, name);
                if ((a == nullptr) != (b == nullptr) || (a != nullptr && *a != *b)) {
                    return false;
                }
            }
            return true;
        };
        const Step* step = self.Expect(Kind::Request, came, key, true);
        RestReply answer =
            RestReply::Error(599, "qel-host replay: the recording holds no answer to " +
                                      std::string(MethodName(request.method)) + " " + request.uri);
        if (step != nullptr) {
            const size_t at = static_cast<size_t>(step - self.steps_.data());
            if (key(*step)) {
                self.Compare(*step, came);
                self.RunInputs(step->close);
                const Value& v = self.steps_[step->close].value;
                answer = RestReply{};
                answer.status = static_cast<uint16_t>(WholeOf(v, "status"));
                answer.resultFormat = static_cast<uint32_t>(WholeOf(v, "format"));
                if (const Value* failed = Member(v, "failed");
                    failed != nullptr && failed->IsTrue()) {
                    answer.failed = true;
                    answer.error = TextOf(v, "error");
                }
                if (const Value* body = Member(v, "body")) {
                    answer.body = Write(*body);
                } else {
                    answer.body = TextOf(v, "text");
                }
            } else {
                std::vector<std::string> differences;
                Differences(step->value, cameValue, "", differences);
                self.Diverge(at, Summary(*step),
                             CameSummary(Kind::Request, came) +
                                 " (not in the recording: answered with a failure)",
                             std::move(differences));
            }
            self.index_ = step->close + 1;
        }
        WritePluginReply(answer, *reply);
    }

    static uint32_t QEL_HOST_CALL Entry1(HostApi* api, uint32_t first, uint32_t second) {
        Replayer& self = Self(api);
        const std::string came =
            "{\"first\":" + std::to_string(first) + ",\"second\":" + std::to_string(second) + "}";
        const Step* step = self.Expect(Kind::Entry1, came, [](const Step&) { return true; });
        if (step == nullptr) {
            return 0;
        }
        self.Compare(*step, came.substr(0, came.size() - 1) + ",\"result\":" +
                                std::to_string(WholeOf(step->value, "result")) + "}");
        return static_cast<uint32_t>(WholeOf(step->value, "result"));
    }

    static void QEL_HOST_CALL EmitEntry(HostApi* api, HostEvent* event) {
        Replayer& self = Self(api);
        const std::string name = Text(event->name);
        std::string json;
        std::string error;
        if (!HostValueToJson(event->payload, json, error)) {
            json = "null";
        }
        const std::string came =
            "{\"name\":" + QuoteJson(name) + ",\"data\":" + (json.empty() ? "null" : json) + "}";
        const Step* step = self.Expect(
            Kind::Emit, came, [&](const Step& s) { return TextOf(s.value, "name") == name; });
        if (step != nullptr) {
            self.Compare(*step, came);
        }
    }

    static void QEL_HOST_CALL RegisterEntry(HostApi* api, const char* name, uint32_t,
                                            HostEventCallback callback, void* context,
                                            uint32_t flags) {
        Replayer& self = Self(api);
        const std::string pattern = Text(name);
        self.registrations_[pattern] = {callback, context};
        const std::string came =
            "{\"name\":" + QuoteJson(pattern) + ",\"flags\":" + std::to_string(flags) + "}";
        const Step* step = self.Expect(Kind::Register, came, [&](const Step& s) {
            return TextOf(s.value, "name") == pattern;
        });
        if (step != nullptr) {
            self.Compare(*step, came);
        }
    }

    static void QEL_HOST_CALL UnregisterEntry(HostApi* api, const char* name, uint32_t) {
        Replayer& self = Self(api);
        const std::string pattern = Text(name);
        self.registrations_.erase(pattern);
        const std::string came = "{\"name\":" + QuoteJson(pattern) + "}";
        const Step* step = self.Expect(Kind::Unregister, came, [&](const Step& s) {
            return TextOf(s.value, "name") == pattern;
        });
        if (step != nullptr) {
            self.Compare(*step, came);
        }
    }

    static void QEL_HOST_CALL ScheduleEntry(HostApi* api, const char* label,
                                            HostDelayedCallback callback, void* context,
                                            double delaySeconds, uint32_t) {
        Replayer& self = Self(api);
        // As the host keeps it.
        if (!(delaySeconds > 0.0) || !std::isfinite(delaySeconds)) {
            delaySeconds = std::isinf(delaySeconds) && delaySeconds > 0 ? 1e9 : 0.0;
        }
        const std::string text = Text(label);
        char delay[40];
        std::snprintf(delay, sizeof delay, "%.17g", delaySeconds);
        const std::string came =
            "{\"label\":" + QuoteJson(text) + ",\"delay\":" + std::string(delay) + "}";
        const Step* step = self.Expect(
            Kind::Schedule, came, [&](const Step& s) { return TextOf(s.value, "label") == text; });
        if (step == nullptr) {
            return;
        }
        const uint64_t call = WholeOf(step->value, "call");
        self.Compare(*step, "{\"call\":" + std::to_string(call) + ",\"label\":" + QuoteJson(text) +
                                ",\"delay\":" + delay + "}");
        if (callback != nullptr) {
            self.calls_[call] = {callback, context};
        }
    }

    static void QEL_HOST_CALL ServeOnceEntry(HostApi* api) {
        Replayer& self = Self(api);
        if (self.finished_) {
            return;
        }
        const Step* step = nullptr;
        const size_t end = self.FrameEnd();
        if (self.index_ < end && self.steps_[self.index_].kind == Kind::Turn) {
            step = &self.steps_[self.index_];
        } else {
            for (size_t j = self.index_; j < end; j = self.session_.Next(j)) {
                if (self.steps_[j].kind == Kind::Turn) {
                    self.Diverge(self.index_, self.Expected(self.index_),
                                 "turn (" + std::to_string(j - self.index_) +
                                     " recorded steps did not come before it)");
                    step = &self.steps_[j];
                    break;
                }
            }
        }
        if (step == nullptr) {
            if (++self.idleTurns_ == 1) {
                self.Diverge(self.index_, self.Expected(self.index_), "turn");
            }
            if (self.idleTurns_ > kIdleTurnLimit) {
                self.Stall("the plugin waits for what the recording never gives (" +
                           std::to_string(kIdleTurnLimit) + " turns with nothing to deliver)");
            }
            return;
        }
        self.idleTurns_ = 0;
        const size_t at = static_cast<size_t>(step - self.steps_.data());
        self.index_ = at + 1;
        self.RunInputs(step->close);
        self.index_ = step->close + 1;
    }

    static void QEL_HOST_CALL BeginWaitEntry(HostApi* api, const char* label, uint32_t value) {
        Replayer& self = Self(api);
        const std::string text = Text(label);
        const std::string came =
            "{\"label\":" + QuoteJson(text) + ",\"value\":" + std::to_string(value) + "}";
        const Step* step = self.Expect(
            Kind::Wait, came, [&](const Step& s) { return TextOf(s.value, "label") == text; });
        if (step != nullptr) {
            self.Compare(*step, came);
        }
    }

    static uint64_t QEL_HOST_CALL EndWaitEntry(HostApi* api) {
        Replayer& self = Self(api);
        const Step* step = self.Expect(Kind::Waited, "", [](const Step&) { return true; });
        return step != nullptr ? WholeOf(step->value, "turns") : 0;
    }

    static void QEL_HOST_CALL WriteLogEntry(HostApi* api, uint32_t level, const char* text) {
        Replayer& self = Self(api);
        const std::string line = Text(text);
        const std::string came =
            "{\"level\":" + std::to_string(level) + ",\"text\":" + QuoteJson(line) + "}";
        const Step* step = self.Expect(
            Kind::Log, came, [&](const Step& s) { return TextOf(s.value, "text") == line; });
        if (step != nullptr) {
            self.Compare(*step, came);
        }
    }

    static constexpr uint64_t kIdleTurnLimit = 10000;

    const Session& session_;
    const std::vector<Step>& steps_;
    PluginLibrary& library_;
    const ReplayOptions& options_;
    Table table_{};
    HostLink link_{};
    std::vector<const EndpointRecord*> endpoints_;
    ReplayResult* result_ = nullptr;
    size_t index_ = 0;
    std::vector<size_t> frames_;
    std::map<std::string, std::pair<HostEventCallback, void*>> registrations_;
    std::map<uint64_t, std::pair<HostDelayedCallback, void*>> calls_;
    uint64_t idleTurns_ = 0;
    bool released_ = false;
    bool finished_ = false;
};

void PrintResult(const ReplayResult& result, const ReplayOptions& options, const std::string& name);

void Replayer::Stall(const std::string& why) {
    SetClockSeamHandler(nullptr);
    Divergence divergence;
    const size_t at = std::min(index_, steps_.size() - 1);
    divergence.step = at + 1;
    divergence.line = steps_[at].line;
    divergence.time = steps_[at].time;
    divergence.expected = Expected(index_);
    divergence.came = why;
    result_->divergences.push_back(std::move(divergence));
    result_->exitCode = 1;
    result_->steps = steps_.size();
    PrintResult(*result_, options_, session_.name);
    std::fflush(options_.out);
    std::fflush(options_.err);
    std::_Exit(1);
}

}  // namespace

std::string DescribeDivergence(const Divergence& divergence) {
    char head[96];
    std::snprintf(head, sizeof head, "step %zu (line %zu), t=%.3f s\n", divergence.step,
                  divergence.line, divergence.time);
    std::string text = head;
    text += "  expected  " + divergence.expected + "\n";
    text += "  came      " + divergence.came + "\n";
    for (const std::string& difference : divergence.differences) {
        text += "    " + difference + "\n";
    }
    if (!divergence.before.empty()) {
        text += "  before it\n";
        for (const std::string& before : divergence.before) {
            text += "    " + before + "\n";
        }
    }
    return text;
}

namespace {

void PrintResult(const ReplayResult& result, const ReplayOptions& options,
                 const std::string& name) {
    const size_t shown = options.keepGoing ? result.divergences.size()
                                           : std::min<size_t>(result.divergences.size(), 1);
    if (options.json) {
        std::string json =
            "{\"session\":" + QuoteJson(name) +
            ",\"result\":" + (result.divergences.empty() ? "\"match\"" : "\"diverged\"") +
            ",\"steps\":" + std::to_string(result.steps) +
            ",\"divergenceCount\":" + std::to_string(result.divergences.size()) + ",\"warnings\":[";
        for (size_t i = 0; i < result.warnings.size(); ++i) {
            json += (i == 0 ? "" : ",") + QuoteJson(result.warnings[i]);
        }
        json += "],\"divergences\":[";
        for (size_t i = 0; i < shown; ++i) {
            const Divergence& d = result.divergences[i];
            char time[32];
            std::snprintf(time, sizeof time, "%.3f", d.time);
            json += std::string(i == 0 ? "" : ",") + "{\"step\":" + std::to_string(d.step) +
                    ",\"line\":" + std::to_string(d.line) + ",\"t\":" + time +
                    ",\"expected\":" + QuoteJson(d.expected) + ",\"came\":" + QuoteJson(d.came) +
                    ",\"differences\":[";
            for (size_t j = 0; j < d.differences.size(); ++j) {
                json += (j == 0 ? "" : ",") + QuoteJson(d.differences[j]);
            }
            json += "],\"before\":[";
            for (size_t j = 0; j < d.before.size(); ++j) {
                json += (j == 0 ? "" : ",") + QuoteJson(d.before[j]);
            }
            json += "]}";
        }
        std::fprintf(options.out, "%s]}\n", json.c_str());
        return;
    }
    for (const std::string& warning : result.warnings) {
        std::fprintf(options.err, "qel-host replay: warning: %s\n", warning.c_str());
    }
    if (result.divergences.empty()) {
        std::fprintf(options.out, "qel-host replay: %s: all %zu steps match\n", name.c_str(),
                     result.steps);
        return;
    }
    std::fprintf(options.out, "qel-host replay: %s: %zu divergence%s in %zu steps%s\n",
                 name.c_str(), result.divergences.size(), result.divergences.size() == 1 ? "" : "s",
                 result.steps,
                 options.keepGoing || result.divergences.size() == 1 ? "" : "; the first:");
    for (size_t i = 0; i < shown; ++i) {
        std::fprintf(options.out, "%s", DescribeDivergence(result.divergences[i]).c_str());
    }
}

}  // namespace

ReplayResult ReplaySession(const Session& session, const ReplayOptions& options) {
    ReplayResult result;
    std::string error;
    PluginLoadOptions load = options.plugin;
    if (options.recordedCoreVersion) {
        const std::string core = TextOf(At(At(session.header, "host"), "options"), "core");
        unsigned major = 0, minor = 0, patch = 0;
        if (std::sscanf(core.c_str(), "%u.%u.%u", &major, &minor, &patch) == 3) {
            load.major = major;
            load.minor = minor;
            load.patch = patch;
        }
    }
    std::unique_ptr<PluginLibrary> library = PluginLibrary::Load(load, error);
    if (library == nullptr) {
        result.error = error;
        return result;
    }
    result = ReplaySession(session, *library, options);
    // The module's code stays mapped until the process ends.
    static std::vector<std::unique_ptr<PluginLibrary>> libraries;
    libraries.push_back(std::move(library));
    return result;
}

ReplayResult ReplaySession(const Session& session, PluginLibrary& library,
                           const ReplayOptions& options) {
    ReplayResult result;
    const Value& recorded = session.header["plugin"];
    if (TextOf(recorded, "name") != library.ShortName()) {
        result.error = "line 1: the session was recorded with the plugin \"" +
                       TextOf(recorded, "name") + "\", not \"" + library.ShortName() + "\"";
        return result;
    }
    const std::string description = ApiDescriptionHash(library);
    if (TextOf(recorded, "description") != description) {
        result.warnings.push_back(
            "line 1: the session was recorded with a plugin of another API "
            "description (" +
            TextOf(recorded, "description") + " there, " + description +
            " here); replaying anyway");
    }
    if (!ClockSeamExported()) {
        result.warnings.push_back(
            "this program does not export the clock seam: the plugin reads the real clocks");
    }
    Replayer replayer(session, library, options);
    replayer.Run(result);
    result.exitCode = result.divergences.empty() ? 0 : 1;
    return result;
}

int RunReplay(const ReplayOptions& options) {
    std::string error;
    SessionPointer session = ReadSession(options.path, error);
    if (session == nullptr) {
        std::fprintf(options.err, "qel-host replay: %s: %s\n", options.path.c_str(), error.c_str());
        return 2;
    }
    ReplayResult result = ReplaySession(*session, options);
    if (!result.error.empty()) {
        std::fprintf(options.err, "qel-host replay: %s: %s\n", options.path.c_str(),
                     result.error.c_str());
        return 2;
    }
    PrintResult(result, options, session->name);
    return result.exitCode;
}

}  // namespace Orvan::Host
