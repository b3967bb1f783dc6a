// A request's whole way through an endpoint's dispatch callback, as the host
// makes it: a GET on a literal path, and a POST with a path parameter and a
// 1 KB JSON body, beside the cost of reading that body alone and of reading
// and converting it into the handler's record.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "framework/binding/NativeConversion.h"
#include "framework/binding/TypeRegistration.h"
#include "framework/codec/Json.h"
#include "framework/module/EndpointRoutes.h"
#include "framework/module/PluginEntry.h"

namespace {

using namespace Orvan::Framework;

struct Member {
    int64_t summonerId = 0;
    std::string name;
    std::vector<std::string> positions;
    bool ready = false;
};

struct Item {
    int32_t queueId = 0;
    std::string title;
    std::vector<Member> members;
    std::vector<int32_t> slots;
};

struct Summary {
    int32_t queueId = -1;
    std::string title;
    bool open = true;
};

class BenchModule : public AppModule {
public:
    void RegisterEndpoints() override {
        RegisterStruct<Member>(Registry(), "QelBenchMember")
            .Field("summonerId", &Member::summonerId)
            .Field("name", &Member::name)
            .Field("positions", &Member::positions)
            .Field("ready", &Member::ready);
        RegisterStruct<Item>(Registry(), "QelBenchItem")
            .Field("queueId", &Item::queueId)
            .Field("title", &Item::title)
            .Field("members", &Item::members)
            .Field("slots", &Item::slots);
        RegisterStruct<Summary>(Registry(), "QelBenchSummary")
            .Field("queueId", &Summary::queueId)
            .Field("title", &Summary::title)
            .Field("open", &Summary::open);

        using namespace Routes;
        EndpointRoutes routes(*this);
        routes.Add(kGet, "/qel-bench/v1/lobby", &BenchModule::GetLobby);
        routes.Add(kPost, "/qel-bench/v1/lobby/members/{id}/items", &BenchModule::PostItem,
                   Path("id"), Body("item"));
        // Neighbours the host would have routed elsewhere; they make the
        // table look like a real one.
        routes.Add(kGet, "/qel-bench/v1/lobby/countdown", &BenchModule::GetLobby);
        routes.Add(kPost, "/qel-bench/v1/lobby/members/{id}/kick", &BenchModule::Kick, Path("id"));
    }

    Maybe<Summary> GetLobby() { return summary_; }
    Maybe<> PostItem(int64_t id, const Item& item) {
        benchmark::DoNotOptimize(id);
        benchmark::DoNotOptimize(item.members.size());
        return Maybe<>::Success();
    }
    Maybe<> Kick(int64_t) { return Maybe<>::Success(); }

private:
    Summary summary_{420, "Ranked draft", true};
};

void QEL_HOST_CALL LoadBenchModule(PluginLoadRecord* record) {
    LoadPluginModule<BenchModule>(record, "qel-bench");
}

// About 1 KB of JSON that converts into an Item.
std::string ItemBody() {
    std::string body =
        R"({"queueId":420,"title":"Ranked draft with friends","slots":[0,1,2,3,4],"members":[)";
    for (int i = 0; i < 5; ++i) {
        if (i != 0) {
            body += ",";
        }
        body += R"({"summonerId":)" + std::to_string(1000000 + i) + R"(,"name":"Summoner number )" +
                std::to_string(i) +
                R"(","positions":["TOP","JUNGLE","MIDDLE","BOTTOM","UTILITY"],"ready":true,)"
                R"("note":"a field that no record declares, skipped by the conversion"})";
    }
    body += "]}";
    return body;
}

struct Fixture {
    PluginLoadRecord record{};
    const EndpointRecord* get = nullptr;
    const EndpointRecord* post = nullptr;
    std::string body = ItemBody();

    Fixture() {
        record.major = 18;
        LoadBenchModule(&record);
        const PluginApiDescriptor& api = *record.apiDescriptor;
        for (uint32_t i = 0; i < api.endpointCount; ++i) {
            const std::string_view name = api.endpoints[i].function.name;
            if (name == "GetQelBenchV1Lobby") {
                get = &api.endpoints[i];
            } else if (name == "PostQelBenchV1LobbyMembersByIdItems") {
                post = &api.endpoints[i];
            }
        }
    }
};

Fixture& TheFixture() {
    static Fixture* fixture = new Fixture();  // the module lives for the process
    return *fixture;
}

void Dispatch(benchmark::State& state, const EndpointRecord& endpoint, HostRequest request) {
    request.dispatchContext = endpoint.function.dispatchContext;
    for (auto _ : state) {
        HostResponse reply;
        endpoint.dispatch(&reply, &request);
        if (reply.failed != 0) {
            state.SkipWithError(reply.errorText);
        }
        reply.release(&reply);
    }
}

void DispatchLiteralGet(benchmark::State& state) {
    Fixture& fixture = TheFixture();
    HostRequest request{};
    request.method = kHostMethodGet;
    request.uri = "/qel-bench/v1/lobby";
    Dispatch(state, *fixture.get, request);
}

void DispatchPostWithPathAndJsonBody(benchmark::State& state) {
    Fixture& fixture = TheFixture();
    HostRequest request{};
    request.method = kHostMethodPost;
    request.uri = "/qel-bench/v1/lobby/members/1000004/items";
    request.contentType = "application/json";
    request.body = reinterpret_cast<const uint8_t*>(fixture.body.c_str());
    request.bodyLength = static_cast<uint32_t>(fixture.body.size());
    Dispatch(state, *fixture.post, request);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * fixture.body.size()));
}

void ReadBodyOnly(benchmark::State& state) {
    Fixture& fixture = TheFixture();
    for (auto _ : state) {
        auto value = ReadJson(fixture.body);
        benchmark::DoNotOptimize(value);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * fixture.body.size()));
}

void ReadAndConvertBody(benchmark::State& state) {
    Fixture& fixture = TheFixture();
    const BindingTypeRegistry& registry =
        static_cast<AppModule*>(fixture.record.module)->Registry();
    for (auto _ : state) {
        auto value = ReadJson(fixture.body);
        auto item = ConvertFromProperty<Item>(registry, value.Value(), "item");
        benchmark::DoNotOptimize(item);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * fixture.body.size()));
}

BENCHMARK(DispatchLiteralGet);
BENCHMARK(DispatchPostWithPathAndJsonBody);
BENCHMARK(ReadBodyOnly);
BENCHMARK(ReadAndConvertBody);

}  // namespace
