#include "host/PublishedState.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace Orvan::Host {

void PublishedState::OnPluginEvent(uint32_t, const std::string& name, const std::string& json) {
    if (name != "OnJsonApiEvent") {
        return;
    }
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(json.c_str(), json.size());
    if (document.HasParseError() || !document.IsObject()) {
        return;
    }
    ResourceEvent event;
    event.at = now_();
    event.uri = Text(&document, "uri");
    event.type = Text(&document, "eventType");
    auto data = std::make_unique<rapidjson::Document>();
    if (auto found = document.FindMember("data"); found != document.MemberEnd()) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        found->value.Accept(writer);
        event.data.assign(buffer.GetString(), buffer.GetSize());
        data->CopyFrom(found->value, data->GetAllocator());
    }
    if (event.type == "Delete") {
        current_.erase(event.uri);
    } else {
        current_[event.uri] = std::move(data);
    }
    events_.push_back(std::move(event));
}

const rapidjson::Value* PublishedState::Current(const std::string& uri) const {
    auto found = current_.find(uri);
    return found == current_.end() ? nullptr : found->second.get();
}

int64_t PublishedState::Find(
    const std::function<bool(const ResourceEvent&, const rapidjson::Value&)>& test,
    size_t from) const {
    for (size_t i = from; i < events_.size(); ++i) {
        rapidjson::Document data;
        data.Parse<rapidjson::kParseIterativeFlag>(events_[i].data.c_str(), events_[i].data.size());
        if (data.HasParseError()) {
            data.SetNull();
        }
        if (test(events_[i], data)) {
            return static_cast<int64_t>(i);
        }
    }
    return -1;
}

size_t PublishedState::Count(const std::string& uri, const std::string& type) const {
    size_t count = 0;
    for (const ResourceEvent& event : events_) {
        if (event.uri == uri && (type.empty() || event.type == type)) {
            ++count;
        }
    }
    return count;
}

const rapidjson::Value* PublishedState::Member(const rapidjson::Value* value, const char* path) {
    // "a.b.c" walks nested objects.
    while (value != nullptr && *path != '\0') {
        const char* dot = std::strchr(path, '.');
        const size_t length = dot != nullptr ? static_cast<size_t>(dot - path) : std::strlen(path);
        if (!value->IsObject()) {
            return nullptr;
        }
        auto found =
            value->FindMember(rapidjson::Value(path, static_cast<rapidjson::SizeType>(length)));
        value = found == value->MemberEnd() ? nullptr : &found->value;
        path += length + (dot != nullptr ? 1 : 0);
    }
    return value;
}

std::string PublishedState::Text(const rapidjson::Value* value, const char* path) {
    const rapidjson::Value* member = Member(value, path);
    return member != nullptr && member->IsString()
               ? std::string(member->GetString(), member->GetStringLength())
               : std::string();
}

int64_t PublishedState::Int(const rapidjson::Value* value, const char* path, int64_t fallback) {
    const rapidjson::Value* member = Member(value, path);
    if (member == nullptr) {
        return fallback;
    }
    if (member->IsInt64()) {
        return member->GetInt64();
    }
    if (member->IsUint64()) {
        return static_cast<int64_t>(member->GetUint64());
    }
    if (member->IsDouble()) {
        return static_cast<int64_t>(std::llround(member->GetDouble()));
    }
    return fallback;
}

bool PublishedState::Flag(const rapidjson::Value* value, const char* path) {
    const rapidjson::Value* member = Member(value, path);
    return member != nullptr && member->IsBool() && member->GetBool();
}

}  // namespace Orvan::Host
