#include "host/Timeline.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>

#include "host/HostJson.h"

namespace Orvan::Host {

namespace {

constexpr size_t kBodyShown = 160;

std::string Shorten(std::string text, size_t limit = kBodyShown) {
    if (text.size() > limit) {
        text.resize(limit);
        text += "...";
    }
    return text;
}

std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", value);
    return text;
}

// The argument of a service-proxy request that names the call, if any.
std::string ServiceCallOf(const RestRequest& request) {
    const std::string path = request.Path();
    auto text = [](const std::string& json) {
        rapidjson::Document document;
        document.Parse(json.c_str(), json.size());
        return !document.HasParseError() && document.IsString() ? std::string(document.GetString())
                                                                : json;
    };
    if (path == "/qel-login/v1/service-proxy-uuid-requests" ||
        path == "/qel-login/v1/service-proxy-method-requests") {
        const size_t payloadIndex = path.find("uuid") != std::string::npos ? 3 : 5;
        return text(request.Argument(0)) + "." + text(request.Argument(1)) + " " +
               Shorten(text(request.Argument(payloadIndex)), 100);
    }
    return {};
}

std::string RequestText(const RestRequest& request) {
    std::string text = std::string(MethodName(request.method)) + " " + request.uri;
    if (request.hasBody && !request.body.empty()) {
        text += " " + Shorten(CompactJson(request.body), 80);
    }
    return text;
}

}  // namespace

Timeline::Timeline(std::FILE* out, bool json, int detail, std::function<double()> now)
    : out_(out), json_(json), detail_(detail), now_(std::move(now)) {}

std::string Timeline::Time() const {
    char text[32];
    std::snprintf(text, sizeof text, "%7.1fs", now_());
    return text;
}

void Timeline::Line(std::string_view who, const std::string& text) {
    if (restOpen_ && !restSplit_) {
        std::fputc('\n', out_);
        restSplit_ = true;
    }
    std::fprintf(out_, "%s  %-13.*s %s\n", Time().c_str(), static_cast<int>(who.size()), who.data(),
                 text.c_str());
    std::fflush(out_);
}

void Timeline::JsonLine(const std::string& object) {
    std::fprintf(out_, "{\"t\":%s,%s}\n", Number(now_()).c_str(), object.c_str());
    std::fflush(out_);
}

void Timeline::Phase(const std::string& title) {
    if (json_) {
        JsonLine("\"kind\":\"phase\",\"title\":" + QuoteJson(title));
        return;
    }
    if (restOpen_ && !restSplit_) {
        std::fputc('\n', out_);
        restSplit_ = true;
    }
    std::string rule = "-- " + title + " ";
    while (rule.size() < 72) {
        rule += '-';
    }
    std::fprintf(out_, "%s  %s\n", Time().c_str(), rule.c_str());
    std::fflush(out_);
}

void Timeline::Note(std::string_view who, const std::string& text, int detail) {
    if (detail > detail_) {
        return;
    }
    if (json_) {
        JsonLine("\"kind\":\"note\",\"who\":" + QuoteJson(who) + ",\"text\":" + QuoteJson(text));
        return;
    }
    Line(who, text);
}

void Timeline::Text(const std::string& text) {
    if (json_) {
        JsonLine("\"kind\":\"text\",\"text\":" + QuoteJson(text));
        return;
    }
    if (restOpen_ && !restSplit_) {
        std::fputc('\n', out_);
        restSplit_ = true;
    }
    std::fprintf(out_, "%s\n", text.c_str());
    std::fflush(out_);
}

void Timeline::Rest(std::string_view who, const RestRequest& request, const RestReply& reply) {
    if (json_) {
        std::string object = "\"kind\":\"rest\",\"who\":" + QuoteJson(who) +
                             ",\"method\":" + QuoteJson(MethodName(request.method)) +
                             ",\"uri\":" + QuoteJson(request.uri) +
                             ",\"status\":" + std::to_string(reply.status);
        if (request.hasBody) {
            object += ",\"body\":" + QuoteJson(request.body);
        }
        if (reply.failed) {
            object += ",\"error\":" + QuoteJson(reply.error);
        } else if (!reply.body.empty()) {
            object += ",\"reply\":" + QuoteJson(Shorten(reply.body, 4096));
        }
        JsonLine(object);
        return;
    }
    std::string status = std::to_string(reply.status);
    if (reply.failed) {
        status += " \"" + reply.error + "\"";
    }
    if (restOpen_ && !restSplit_) {
        restOpen_ = false;
        std::fprintf(out_, "  -> %s\n", status.c_str());
        std::fflush(out_);
        return;
    }
    const bool split = restOpen_;
    restOpen_ = false;
    Line(who, split ? "  ... -> " + status : RequestText(request) + "  -> " + status);
}

void Timeline::RestBegin(std::string_view who, const RestRequest& request) {
    if (json_) {
        return;
    }
    if (restOpen_ && !restSplit_) {
        std::fputc('\n', out_);
    }
    std::fprintf(out_, "%s  %-13.*s %s", Time().c_str(), static_cast<int>(who.size()), who.data(),
                 RequestText(request).c_str());
    std::fflush(out_);
    restOpen_ = true;
    restSplit_ = false;
}

void Timeline::Outcome(bool success, const std::string& text) {
    if (json_) {
        JsonLine(std::string("\"kind\":\"outcome\",\"ok\":") + (success ? "true" : "false") +
                 ",\"text\":" + QuoteJson(text));
        return;
    }
    std::fprintf(out_, "\n%s %s\n", success ? "PASS" : "FAIL", text.c_str());
    std::fflush(out_);
}

void Timeline::OnPluginEvent(uint32_t, const std::string& name, const std::string& json) {
    // A resource event goes out twice, under its key and under the base
    // name; the base one is shown.
    if (name != "OnJsonApiEvent") {
        if (name.rfind("OnJsonApiEvent_", 0) != 0 && detail_ >= 2) {
            Note("plugin", "emits " + name + " " + Shorten(json), 2);
        }
        return;
    }
    if (detail_ < 1) {
        return;
    }
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(json.c_str(), json.size());
    if (document.HasParseError() || !document.IsObject()) {
        Note("event", "unreadable resource event " + Shorten(json));
        return;
    }
    auto text = [&](const char* field) {
        auto found = document.FindMember(field);
        return found != document.MemberEnd() && found->value.IsString()
                   ? std::string(found->value.GetString())
                   : std::string();
    };
    const std::string uri = text("uri");
    const std::string type = text("eventType");
    std::string data = "null";
    if (auto found = document.FindMember("data"); found != document.MemberEnd()) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        found->value.Accept(writer);
        data.assign(buffer.GetString(), buffer.GetSize());
    }
    const bool wasLive = live_.count(uri) != 0;
    if (type == "Delete") {
        live_.erase(uri);
    } else {
        live_.insert(uri);
    }
    const std::string summary = SummarizeResource(uri, type, data, names_);
    std::string& last = lastLines_[uri];
    const bool countdown = uri == "/qel-lobby-team-builder/v1/lobby/countdown";
    // "created: " and ": " say the same once the value is shown.
    std::string plain = summary;
    if (const size_t at = plain.find(" created: "); at != std::string::npos) {
        plain.replace(at, 10, ": ");
    }
    const bool repeated = countdown
                              ? plain.substr(0, plain.find(',')) == last.substr(0, last.find(','))
                              : plain == last;
    last = plain;
    if (detail_ < 2 && ((type == "Delete" && !wasLive) || (repeated && type != "Delete"))) {
        return;
    }
    if (json_) {
        JsonLine("\"kind\":\"event\",\"uri\":" + QuoteJson(uri) + ",\"eventType\":" +
                 QuoteJson(type) + ",\"summary\":" + QuoteJson(summary) + ",\"data\":" + data);
        return;
    }
    Line("event", summary);
}

void Timeline::OnPluginRequest(uint32_t, const RestRequest& request, const RestReply& reply) {
    if (detail_ < 2) {
        return;
    }
    const std::string call = ServiceCallOf(request);
    std::string text = call.empty() ? std::string(MethodName(request.method)) + " " + request.uri
                                    : "service call " + call;
    text += "  -> " + std::to_string(reply.status);
    if (reply.failed) {
        text += " \"" + reply.error + "\"";
    }
    Note("plugin", text, 2);
}

void Timeline::OnLog(uint32_t, uint32_t level, const std::string& text) {
    static constexpr const char* kLevels[] = {"OKAY", "WARN", "ERROR", "ALWAYS"};
    const int needed = (level == 1 || level == 2) ? 2 : 3;
    if (needed > detail_) {
        return;
    }
    std::string line = text;
    while (!line.empty() && line.back() == '\n') {
        line.pop_back();
    }
    if (json_) {
        JsonLine("\"kind\":\"log\",\"level\":" + std::to_string(level) +
                 ",\"text\":" + QuoteJson(line));
        return;
    }
    Line(std::string("log ") + (level < 4 ? kLevels[level] : "?"), line);
}

void Timeline::OnWait(uint32_t, const std::string& label, bool begins) {
    Note("plugin", (begins ? "waits: " : "done waiting: ") + label, 3);
}

void Timeline::OnDelayedCall(uint32_t, const std::string& label, double delaySeconds) {
    Note("plugin", "schedules \"" + label + "\" in " + Number(delaySeconds) + " s", 3);
}

}  // namespace Orvan::Host
