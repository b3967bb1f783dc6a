/*
 * HostAbi.h: the C records and functions exchanged with the plugin host.
 *
 * Purpose: the one place where the byte layout of the host interface is written
 * down. Usable from C (C11) and C++; no C++ type appears here. Every record is
 * byte-packed, fields in the host's order. Addresses are pointers of the
 * platform's width (4 bytes on i386, 8 on x86-64); every other field keeps its
 * fixed width. The i386 layout is the host's own; the x86-64 layout is the
 * same records with 8-byte addresses. Both are pinned by the assertions at the
 * end of this file.
 *
 * Ownership: a record names who owns what it points at in its comment; texts
 * in description records are owned by the module until DestroyModule.
 *
 * Threads: the host calls every function declared here on its own thread.
 */
#ifndef QEL_FRAMEWORK_HOST_HOSTABI_H
#define QEL_FRAMEWORK_HOST_HOSTABI_H

#include <stddef.h>
#include <stdint.h>

/* Plain C calling convention for every function crossing the boundary. */
#if defined(_WIN32)
#define QEL_HOST_CALL __cdecl
#define QEL_PLUGIN_EXPORT __declspec(dllexport)
#else
#define QEL_HOST_CALL
#define QEL_PLUGIN_EXPORT __attribute__((visibility("default")))
#endif

#if defined(__i386__) || defined(_M_IX86)
#define QEL_HOST_ABI_I386 1
#elif defined(__x86_64__) || defined(_M_X64)
#define QEL_HOST_ABI_X86_64 1
#endif

#ifdef __cplusplus
#define QEL_ABI_ASSERT(condition, message) static_assert(condition, message)
extern "C" {
#else
#define QEL_ABI_ASSERT(condition, message) _Static_assert(condition, message)
#endif

/* ---- Codes ------------------------------------------------------------- */

/* Request method codes, numbered as the host numbers them. */
enum {
    kHostMethodNone = 0,
    kHostMethodDelete = 1,
    kHostMethodGet = 2,
    kHostMethodHead = 3,
    kHostMethodOptions = 4,
    kHostMethodPatch = 5,
    kHostMethodPost = 6,
    kHostMethodPut = 7,
    /* The request names the function itself instead of a path. */
    kHostMethodDirectCall = 8
};

/* Type codes of a HostValue. */
enum {
    kHostValueNull = 0,
    kHostValueBool = 1,
    kHostValueSigned = 2,
    kHostValueUnsigned = 3,
    kHostValueFloat = 4,
    kHostValueTextUnowned = 5,
    kHostValueTextOwned = 6,
    kHostValueBytesUnowned = 7,
    kHostValueBytesOwned = 8,
    kHostValueArray = 9,
    kHostValueObject = 10
};

/* Where a declared endpoint argument may come from. */
enum {
    kArgumentLocationAnywhere = 0,
    kArgumentLocationQuery = 1,
    kArgumentLocationPath = 2,
    kArgumentLocationHeader = 4,
    kArgumentLocationBody = 5
};

/* Number of 32-bit words GetMemoryStatistics writes. */
enum { kMemoryStatisticsWords = 14 };

/* ---- Forward declarations ---------------------------------------------- */

typedef struct HostValue HostValue;
typedef struct HostObjectEntry HostObjectEntry;
typedef struct HostEvent HostEvent;
typedef struct HostArgument HostArgument;
typedef struct HostHeader HostHeader;
typedef struct HostRequest HostRequest;
typedef struct HostResponse HostResponse;
typedef struct HostLink HostLink;
typedef struct HostApi HostApi;
typedef struct PluginLoadRecord PluginLoadRecord;
typedef struct ModuleCallbacks ModuleCallbacks;
typedef struct PluginApiDescriptor PluginApiDescriptor;
typedef struct FunctionDescriptionRecord FunctionDescriptionRecord;
typedef struct EndpointRecord EndpointRecord;
typedef struct ArgumentRecord ArgumentRecord;
typedef struct ArgumentLocationRecord ArgumentLocationRecord;
typedef struct EventRecord EventRecord;
typedef struct TypeRecord TypeRecord;
typedef struct FieldRecord FieldRecord;
typedef struct EnumeratorRecord EnumeratorRecord;
typedef struct EndpointStringListRecord EndpointStringListRecord;

/* ---- Function types ---------------------------------------------------- */

/* An endpoint's callback: fills the reply for the request. */
typedef void(QEL_HOST_CALL* HostDispatchCallback)(HostResponse* reply, HostRequest* request);
/* Streamed body: on entry *length is the buffer size, on return the bytes
 * delivered; *more becomes 0 once the body is complete. Non-zero on success. */
typedef uint8_t(QEL_HOST_CALL* HostStreamReadFunction)(void* context, uint8_t* buffer,
                                                       uint32_t* length, uint8_t* more);
typedef void(QEL_HOST_CALL* HostStreamCloseFunction)(void* context);
/* Frees what a reply owns; called once by whoever received the reply. */
typedef void(QEL_HOST_CALL* HostResponseReleaseFunction)(HostResponse* reply);
/* Event delivery; the event's context holds the context given at registration. */
typedef void(QEL_HOST_CALL* HostEventCallback)(HostEvent* event);
/* A delayed call; receives the context given when it was scheduled. */
typedef void(QEL_HOST_CALL* HostDelayedCallback)(void* context);

typedef uint8_t(QEL_HOST_CALL* ModuleStartFunction)(void* module, HostLink* link);
typedef void(QEL_HOST_CALL* ModuleDestroyFunction)(void* module);
typedef void(QEL_HOST_CALL* ModuleMemoryStatisticsFunction)(void* module, uint32_t* out);

#pragma pack(push, 1)

/* ---- Values ------------------------------------------------------------ */

/* Address and length of texts, bytes, arrays and objects. */
typedef struct HostValueSpan {
    void* address;
    uint32_t length;
} HostValueSpan;

typedef union HostValuePayload {
    uint8_t boolValue;
    int64_t signedValue;
    uint64_t unsignedValue;
    double floatValue;
    /* Codes 5..10. Code 5 uses only the address (a NUL-terminated text). */
    HostValueSpan span;
} HostValuePayload;

/* A value crossing the boundary. Codes 6, 8, 9 and 10 own what they point at;
 * 5 and 7 never do. */
struct HostValue {
    uint32_t type;
    HostValuePayload payload;
};

/* One member of an object value (code 10). */
struct HostObjectEntry {
    const char* key;
    HostValue value;
    /* 1 when the key text is owned by the entry. */
    uint8_t keyOwned;
};

/* ---- Events ------------------------------------------------------------ */

struct HostEvent {
    const char* name;
    HostValue payload;
    /* 0 when the module sends. */
    uint32_t reserved;
    /* 0 when the module sends; the registration's context when delivered. */
    void* context;
};

/* ---- Requests and replies ---------------------------------------------- */

/* A call argument; name 0 for a positional one. */
struct HostArgument {
    const char* name;
    HostValue value;
};

/* One header as a pair of NUL-terminated texts. */
struct HostHeader {
    const char* name;
    const char* value;
};

struct HostRequest {
    uint32_t method;
    /* Path, then optionally "?" and the query. */
    const char* uri;
    HostArgument* arguments;
    uint32_t argumentCount;
    /* Set by the host to the endpoint's dispatch context when delivering. */
    void* dispatchContext;
    HostHeader* headers;
    uint32_t headerCount;
    const char* contentType;
    /* The host places one NUL byte after the last byte (not counted). */
    const uint8_t* body;
    uint32_t bodyLength;
    uint32_t pluginHandle;
    /* Function name of a direct call (method 8). */
    const char* functionName;
};

struct HostResponse {
    /* Used when no read function is set. */
    HostValue body;
    /* NUL-terminated; 0 when the call succeeded. */
    const char* errorText;
    uint8_t failed;
    uint8_t responderFlag;
    uint32_t resultFormat;
    uint16_t status;
#if defined(QEL_HOST_ABI_I386)
    /* The host's 32-bit layout leaves two bytes here; the 64-bit form does not. */
    uint8_t statusPadding[2];
#endif
    const char* responderText;
    HostHeader* headers;
    uint32_t headerCount;
    HostStreamReadFunction read;
    HostStreamCloseFunction close;
    /* Size hint of a streamed body. */
    uint32_t expectedLength;
    uint32_t reserved;
    void* streamContext;
    HostResponseReleaseFunction release;
};

/* ---- Host link --------------------------------------------------------- */

struct HostLink {
    HostApi* api;
    uint32_t pluginHandle;
};

/* The host's function table. Only these ten leading entries are used; the
 * host's own data may follow them. Each takes the table itself first. */
struct HostApi {
    void(QEL_HOST_CALL* Request)(HostApi* api, HostResponse* reply, HostRequest* request);
    uint32_t(QEL_HOST_CALL* Entry1)(HostApi* api, uint32_t first, uint32_t second);
    void(QEL_HOST_CALL* EmitEvent)(HostApi* api, HostEvent* event);
    void(QEL_HOST_CALL* RegisterEvent)(HostApi* api, const char* name, uint32_t pluginHandle,
                                       HostEventCallback callback, void* context, uint32_t flags);
    void(QEL_HOST_CALL* UnregisterEvent)(HostApi* api, const char* name, uint32_t pluginHandle);
    void(QEL_HOST_CALL* ScheduleCall)(HostApi* api, const char* label, HostDelayedCallback callback,
                                      void* context, double delaySeconds, uint32_t flags);
    void(QEL_HOST_CALL* ServeOnce)(HostApi* api);
    void(QEL_HOST_CALL* BeginWait)(HostApi* api, const char* label, uint32_t value);
    uint64_t(QEL_HOST_CALL* EndWait)(HostApi* api);
    void(QEL_HOST_CALL* WriteLog)(HostApi* api, uint32_t level, const char* text);
};

/* ---- Load record and module callbacks ---------------------------------- */

struct ModuleCallbacks {
    ModuleStartFunction StartModule;
    ModuleDestroyFunction DestroyModule;
    /* Writes kMemoryStatisticsWords words. */
    ModuleMemoryStatisticsFunction GetMemoryStatistics;
};

/* Filled by the host with its version; filled by the module with its own
 * version and the addresses below, valid until DestroyModule. */
struct PluginLoadRecord {
    uint32_t major;
    uint32_t minor;
    uint32_t patch;
    ModuleCallbacks* callbacks;
    void* module;
    const char* shortName;
    PluginApiDescriptor* apiDescriptor;
};

/* ---- API description (owned by the module) ----------------------------- */

struct PluginApiDescriptor {
    const EndpointRecord* endpoints;
    uint32_t endpointCount;
    const TypeRecord* types;
    uint32_t typeCount;
    const EventRecord* events;
    uint32_t eventCount;
};

/* Records of one array lie consecutively; next points at the following one
 * (0 in the last). */
struct FunctionDescriptionRecord {
    const FunctionDescriptionRecord* next;
    const void* reserved;
    /* 0 in a plain function record; the dispatch context in an endpoint. */
    void* dispatchContext;
    const char* name;
    const char* nameSpace;
    const ArgumentRecord* arguments;
    uint32_t argumentCount;
    uint32_t returnType;
    uint32_t returnElementType;
    const char* returnTypeName;
    const char* description;
    const char* help;
    uint8_t threadSafe;
    const char* asyncResultTypeName;
    const char* const* tags;
    uint32_t tagCount;
};

struct ArgumentLocationRecord {
    const ArgumentLocationRecord* next;
    uint32_t location;
};

struct EndpointStringListRecord {
    const EndpointStringListRecord* next;
    const char* const* texts;
    uint32_t count;
};

struct EndpointRecord {
    FunctionDescriptionRecord function;
    HostDispatchCallback dispatch;
    const ArgumentLocationRecord* argumentLocations;
    const char* urlTemplate;
    uint32_t method;
    uint8_t flags;
    const EndpointStringListRecord* stringLists;
    uint32_t stringListCount;
    const char* secondText;
};

struct ArgumentRecord {
    const ArgumentRecord* next;
    const char* name;
    const char* description;
    uint32_t type;
    uint32_t elementType;
    const char* typeName;
    uint8_t optional;
};

struct EventRecord {
    const EventRecord* next;
    const char* name;
    const char* nameSpace;
    const char* payloadTypeName;
    const char* description;
    const char* const* tags;
    uint32_t tagCount;
};

struct TypeRecord {
    const TypeRecord* next;
    const char* name;
    const char* nameSpace;
    uint32_t size;
    const char* description;
    const char* const* tags;
    uint32_t tagCount;
    /* 0 for a type without fields. */
    const FieldRecord* fields;
    /* Set only for a type without fields. */
    const EnumeratorRecord* enumerators;
    /* Fields, or enumerators for a type without fields. */
    uint32_t count;
};

struct FieldRecord {
    const FieldRecord* next;
    const char* name;
    const char* description;
    uint32_t offset;
    uint32_t type;
    uint32_t elementType;
    const char* typeName;
    uint8_t optional;
};

struct EnumeratorRecord {
    const EnumeratorRecord* next;
    const char* name;
    const char* description;
    int32_t value;
};

#pragma pack(pop)

/* ---- The library's only export ----------------------------------------- */

QEL_PLUGIN_EXPORT void QEL_HOST_CALL load_qel_lobby_team_builder(PluginLoadRecord* record);

/* ---- Layout checks ----------------------------------------------------- */

#define QEL_ABI_SIZE(type, size) QEL_ABI_ASSERT(sizeof(type) == (size), #type " size")
#define QEL_ABI_OFFSET(type, member, offset) \
    QEL_ABI_ASSERT(offsetof(type, member) == (offset), #type "." #member " offset")

#if defined(QEL_HOST_ABI_I386)

QEL_ABI_SIZE(HostValue, 12);
QEL_ABI_OFFSET(HostValue, type, 0);
QEL_ABI_OFFSET(HostValue, payload, 4);
QEL_ABI_OFFSET(HostValue, payload.span.length, 8);

QEL_ABI_SIZE(HostObjectEntry, 17);
QEL_ABI_OFFSET(HostObjectEntry, key, 0);
QEL_ABI_OFFSET(HostObjectEntry, value, 4);
QEL_ABI_OFFSET(HostObjectEntry, keyOwned, 16);

QEL_ABI_SIZE(HostEvent, 24);
QEL_ABI_OFFSET(HostEvent, name, 0);
QEL_ABI_OFFSET(HostEvent, payload, 4);
QEL_ABI_OFFSET(HostEvent, reserved, 16);
QEL_ABI_OFFSET(HostEvent, context, 20);

QEL_ABI_SIZE(HostArgument, 16);
QEL_ABI_OFFSET(HostArgument, name, 0);
QEL_ABI_OFFSET(HostArgument, value, 4);

QEL_ABI_SIZE(HostHeader, 8);
QEL_ABI_OFFSET(HostHeader, value, 4);

QEL_ABI_SIZE(HostRequest, 48);
QEL_ABI_OFFSET(HostRequest, method, 0);
QEL_ABI_OFFSET(HostRequest, uri, 4);
QEL_ABI_OFFSET(HostRequest, arguments, 8);
QEL_ABI_OFFSET(HostRequest, argumentCount, 12);
QEL_ABI_OFFSET(HostRequest, dispatchContext, 16);
QEL_ABI_OFFSET(HostRequest, headers, 20);
QEL_ABI_OFFSET(HostRequest, headerCount, 24);
QEL_ABI_OFFSET(HostRequest, contentType, 28);
QEL_ABI_OFFSET(HostRequest, body, 32);
QEL_ABI_OFFSET(HostRequest, bodyLength, 36);
QEL_ABI_OFFSET(HostRequest, pluginHandle, 40);
QEL_ABI_OFFSET(HostRequest, functionName, 44);

QEL_ABI_SIZE(HostResponse, 62);
QEL_ABI_OFFSET(HostResponse, body, 0);
QEL_ABI_OFFSET(HostResponse, errorText, 12);
QEL_ABI_OFFSET(HostResponse, failed, 16);
QEL_ABI_OFFSET(HostResponse, responderFlag, 17);
QEL_ABI_OFFSET(HostResponse, resultFormat, 18);
QEL_ABI_OFFSET(HostResponse, status, 22);
QEL_ABI_OFFSET(HostResponse, responderText, 26);
QEL_ABI_OFFSET(HostResponse, headers, 30);
QEL_ABI_OFFSET(HostResponse, headerCount, 34);
QEL_ABI_OFFSET(HostResponse, read, 38);
QEL_ABI_OFFSET(HostResponse, close, 42);
QEL_ABI_OFFSET(HostResponse, expectedLength, 46);
QEL_ABI_OFFSET(HostResponse, reserved, 50);
QEL_ABI_OFFSET(HostResponse, streamContext, 54);
QEL_ABI_OFFSET(HostResponse, release, 58);

QEL_ABI_SIZE(HostLink, 8);
QEL_ABI_OFFSET(HostLink, api, 0);
QEL_ABI_OFFSET(HostLink, pluginHandle, 4);

QEL_ABI_SIZE(HostApi, 40);
QEL_ABI_OFFSET(HostApi, Request, 0);
QEL_ABI_OFFSET(HostApi, Entry1, 4);
QEL_ABI_OFFSET(HostApi, EmitEvent, 8);
QEL_ABI_OFFSET(HostApi, RegisterEvent, 12);
QEL_ABI_OFFSET(HostApi, UnregisterEvent, 16);
QEL_ABI_OFFSET(HostApi, ScheduleCall, 20);
QEL_ABI_OFFSET(HostApi, ServeOnce, 24);
QEL_ABI_OFFSET(HostApi, BeginWait, 28);
QEL_ABI_OFFSET(HostApi, EndWait, 32);
QEL_ABI_OFFSET(HostApi, WriteLog, 36);

QEL_ABI_SIZE(ModuleCallbacks, 12);
QEL_ABI_OFFSET(ModuleCallbacks, StartModule, 0);
QEL_ABI_OFFSET(ModuleCallbacks, DestroyModule, 4);
QEL_ABI_OFFSET(ModuleCallbacks, GetMemoryStatistics, 8);

QEL_ABI_SIZE(PluginLoadRecord, 28);
QEL_ABI_OFFSET(PluginLoadRecord, major, 0);
QEL_ABI_OFFSET(PluginLoadRecord, minor, 4);
QEL_ABI_OFFSET(PluginLoadRecord, patch, 8);
QEL_ABI_OFFSET(PluginLoadRecord, callbacks, 12);
QEL_ABI_OFFSET(PluginLoadRecord, module, 16);
QEL_ABI_OFFSET(PluginLoadRecord, shortName, 20);
QEL_ABI_OFFSET(PluginLoadRecord, apiDescriptor, 24);

QEL_ABI_SIZE(PluginApiDescriptor, 24);
QEL_ABI_OFFSET(PluginApiDescriptor, endpoints, 0);
QEL_ABI_OFFSET(PluginApiDescriptor, endpointCount, 4);
QEL_ABI_OFFSET(PluginApiDescriptor, types, 8);
QEL_ABI_OFFSET(PluginApiDescriptor, typeCount, 12);
QEL_ABI_OFFSET(PluginApiDescriptor, events, 16);
QEL_ABI_OFFSET(PluginApiDescriptor, eventCount, 20);

QEL_ABI_SIZE(FunctionDescriptionRecord, 61);
QEL_ABI_OFFSET(FunctionDescriptionRecord, next, 0);
QEL_ABI_OFFSET(FunctionDescriptionRecord, reserved, 4);
QEL_ABI_OFFSET(FunctionDescriptionRecord, dispatchContext, 8);
QEL_ABI_OFFSET(FunctionDescriptionRecord, name, 12);
QEL_ABI_OFFSET(FunctionDescriptionRecord, nameSpace, 16);
QEL_ABI_OFFSET(FunctionDescriptionRecord, arguments, 20);
QEL_ABI_OFFSET(FunctionDescriptionRecord, argumentCount, 24);
QEL_ABI_OFFSET(FunctionDescriptionRecord, returnType, 28);
QEL_ABI_OFFSET(FunctionDescriptionRecord, returnElementType, 32);
QEL_ABI_OFFSET(FunctionDescriptionRecord, returnTypeName, 36);
QEL_ABI_OFFSET(FunctionDescriptionRecord, description, 40);
QEL_ABI_OFFSET(FunctionDescriptionRecord, help, 44);
QEL_ABI_OFFSET(FunctionDescriptionRecord, threadSafe, 48);
QEL_ABI_OFFSET(FunctionDescriptionRecord, asyncResultTypeName, 49);
QEL_ABI_OFFSET(FunctionDescriptionRecord, tags, 53);
QEL_ABI_OFFSET(FunctionDescriptionRecord, tagCount, 57);

QEL_ABI_SIZE(ArgumentLocationRecord, 8);
QEL_ABI_OFFSET(ArgumentLocationRecord, location, 4);

QEL_ABI_SIZE(EndpointStringListRecord, 12);
QEL_ABI_OFFSET(EndpointStringListRecord, texts, 4);
QEL_ABI_OFFSET(EndpointStringListRecord, count, 8);

QEL_ABI_SIZE(EndpointRecord, 90);
QEL_ABI_OFFSET(EndpointRecord, function, 0);
QEL_ABI_OFFSET(EndpointRecord, dispatch, 61);
QEL_ABI_OFFSET(EndpointRecord, argumentLocations, 65);
QEL_ABI_OFFSET(EndpointRecord, urlTemplate, 69);
QEL_ABI_OFFSET(EndpointRecord, method, 73);
QEL_ABI_OFFSET(EndpointRecord, flags, 77);
QEL_ABI_OFFSET(EndpointRecord, stringLists, 78);
QEL_ABI_OFFSET(EndpointRecord, stringListCount, 82);
QEL_ABI_OFFSET(EndpointRecord, secondText, 86);

QEL_ABI_SIZE(ArgumentRecord, 25);
QEL_ABI_OFFSET(ArgumentRecord, next, 0);
QEL_ABI_OFFSET(ArgumentRecord, name, 4);
QEL_ABI_OFFSET(ArgumentRecord, description, 8);
QEL_ABI_OFFSET(ArgumentRecord, type, 12);
QEL_ABI_OFFSET(ArgumentRecord, elementType, 16);
QEL_ABI_OFFSET(ArgumentRecord, typeName, 20);
QEL_ABI_OFFSET(ArgumentRecord, optional, 24);

QEL_ABI_SIZE(EventRecord, 28);
QEL_ABI_OFFSET(EventRecord, next, 0);
QEL_ABI_OFFSET(EventRecord, name, 4);
QEL_ABI_OFFSET(EventRecord, nameSpace, 8);
QEL_ABI_OFFSET(EventRecord, payloadTypeName, 12);
QEL_ABI_OFFSET(EventRecord, description, 16);
QEL_ABI_OFFSET(EventRecord, tags, 20);
QEL_ABI_OFFSET(EventRecord, tagCount, 24);

QEL_ABI_SIZE(TypeRecord, 40);
QEL_ABI_OFFSET(TypeRecord, next, 0);
QEL_ABI_OFFSET(TypeRecord, name, 4);
QEL_ABI_OFFSET(TypeRecord, nameSpace, 8);
QEL_ABI_OFFSET(TypeRecord, size, 12);
QEL_ABI_OFFSET(TypeRecord, description, 16);
QEL_ABI_OFFSET(TypeRecord, tags, 20);
QEL_ABI_OFFSET(TypeRecord, tagCount, 24);
QEL_ABI_OFFSET(TypeRecord, fields, 28);
QEL_ABI_OFFSET(TypeRecord, enumerators, 32);
QEL_ABI_OFFSET(TypeRecord, count, 36);

QEL_ABI_SIZE(FieldRecord, 29);
QEL_ABI_OFFSET(FieldRecord, next, 0);
QEL_ABI_OFFSET(FieldRecord, name, 4);
QEL_ABI_OFFSET(FieldRecord, description, 8);
QEL_ABI_OFFSET(FieldRecord, offset, 12);
QEL_ABI_OFFSET(FieldRecord, type, 16);
QEL_ABI_OFFSET(FieldRecord, elementType, 20);
QEL_ABI_OFFSET(FieldRecord, typeName, 24);
QEL_ABI_OFFSET(FieldRecord, optional, 28);

QEL_ABI_SIZE(EnumeratorRecord, 16);
QEL_ABI_OFFSET(EnumeratorRecord, next, 0);
QEL_ABI_OFFSET(EnumeratorRecord, name, 4);
QEL_ABI_OFFSET(EnumeratorRecord, description, 8);
QEL_ABI_OFFSET(EnumeratorRecord, value, 12);

#elif defined(QEL_HOST_ABI_X86_64)

QEL_ABI_SIZE(HostValue, 16);
QEL_ABI_OFFSET(HostValue, type, 0);
QEL_ABI_OFFSET(HostValue, payload, 4);
QEL_ABI_OFFSET(HostValue, payload.span.length, 12);

QEL_ABI_SIZE(HostObjectEntry, 25);
QEL_ABI_OFFSET(HostObjectEntry, key, 0);
QEL_ABI_OFFSET(HostObjectEntry, value, 8);
QEL_ABI_OFFSET(HostObjectEntry, keyOwned, 24);

QEL_ABI_SIZE(HostEvent, 36);
QEL_ABI_OFFSET(HostEvent, name, 0);
QEL_ABI_OFFSET(HostEvent, payload, 8);
QEL_ABI_OFFSET(HostEvent, reserved, 24);
QEL_ABI_OFFSET(HostEvent, context, 28);

QEL_ABI_SIZE(HostArgument, 24);
QEL_ABI_OFFSET(HostArgument, name, 0);
QEL_ABI_OFFSET(HostArgument, value, 8);

QEL_ABI_SIZE(HostHeader, 16);
QEL_ABI_OFFSET(HostHeader, value, 8);

QEL_ABI_SIZE(HostRequest, 76);
QEL_ABI_OFFSET(HostRequest, method, 0);
QEL_ABI_OFFSET(HostRequest, uri, 4);
QEL_ABI_OFFSET(HostRequest, arguments, 12);
QEL_ABI_OFFSET(HostRequest, argumentCount, 20);
QEL_ABI_OFFSET(HostRequest, dispatchContext, 24);
QEL_ABI_OFFSET(HostRequest, headers, 32);
QEL_ABI_OFFSET(HostRequest, headerCount, 40);
QEL_ABI_OFFSET(HostRequest, contentType, 44);
QEL_ABI_OFFSET(HostRequest, body, 52);
QEL_ABI_OFFSET(HostRequest, bodyLength, 60);
QEL_ABI_OFFSET(HostRequest, pluginHandle, 64);
QEL_ABI_OFFSET(HostRequest, functionName, 68);

QEL_ABI_SIZE(HostResponse, 92);
QEL_ABI_OFFSET(HostResponse, body, 0);
QEL_ABI_OFFSET(HostResponse, errorText, 16);
QEL_ABI_OFFSET(HostResponse, failed, 24);
QEL_ABI_OFFSET(HostResponse, responderFlag, 25);
QEL_ABI_OFFSET(HostResponse, resultFormat, 26);
QEL_ABI_OFFSET(HostResponse, status, 30);
QEL_ABI_OFFSET(HostResponse, responderText, 32);
QEL_ABI_OFFSET(HostResponse, headers, 40);
QEL_ABI_OFFSET(HostResponse, headerCount, 48);
QEL_ABI_OFFSET(HostResponse, read, 52);
QEL_ABI_OFFSET(HostResponse, close, 60);
QEL_ABI_OFFSET(HostResponse, expectedLength, 68);
QEL_ABI_OFFSET(HostResponse, reserved, 72);
QEL_ABI_OFFSET(HostResponse, streamContext, 76);
QEL_ABI_OFFSET(HostResponse, release, 84);

QEL_ABI_SIZE(HostLink, 12);
QEL_ABI_OFFSET(HostLink, api, 0);
QEL_ABI_OFFSET(HostLink, pluginHandle, 8);

QEL_ABI_SIZE(HostApi, 80);
QEL_ABI_OFFSET(HostApi, Request, 0);
QEL_ABI_OFFSET(HostApi, Entry1, 8);
QEL_ABI_OFFSET(HostApi, EmitEvent, 16);
QEL_ABI_OFFSET(HostApi, RegisterEvent, 24);
QEL_ABI_OFFSET(HostApi, UnregisterEvent, 32);
QEL_ABI_OFFSET(HostApi, ScheduleCall, 40);
QEL_ABI_OFFSET(HostApi, ServeOnce, 48);
QEL_ABI_OFFSET(HostApi, BeginWait, 56);
QEL_ABI_OFFSET(HostApi, EndWait, 64);
QEL_ABI_OFFSET(HostApi, WriteLog, 72);

QEL_ABI_SIZE(ModuleCallbacks, 24);
QEL_ABI_OFFSET(ModuleCallbacks, StartModule, 0);
QEL_ABI_OFFSET(ModuleCallbacks, DestroyModule, 8);
QEL_ABI_OFFSET(ModuleCallbacks, GetMemoryStatistics, 16);

QEL_ABI_SIZE(PluginLoadRecord, 44);
QEL_ABI_OFFSET(PluginLoadRecord, major, 0);
QEL_ABI_OFFSET(PluginLoadRecord, minor, 4);
QEL_ABI_OFFSET(PluginLoadRecord, patch, 8);
QEL_ABI_OFFSET(PluginLoadRecord, callbacks, 12);
QEL_ABI_OFFSET(PluginLoadRecord, module, 20);
QEL_ABI_OFFSET(PluginLoadRecord, shortName, 28);
QEL_ABI_OFFSET(PluginLoadRecord, apiDescriptor, 36);

QEL_ABI_SIZE(PluginApiDescriptor, 36);
QEL_ABI_OFFSET(PluginApiDescriptor, endpoints, 0);
QEL_ABI_OFFSET(PluginApiDescriptor, endpointCount, 8);
QEL_ABI_OFFSET(PluginApiDescriptor, types, 12);
QEL_ABI_OFFSET(PluginApiDescriptor, typeCount, 20);
QEL_ABI_OFFSET(PluginApiDescriptor, events, 24);
QEL_ABI_OFFSET(PluginApiDescriptor, eventCount, 32);

QEL_ABI_SIZE(FunctionDescriptionRecord, 105);
QEL_ABI_OFFSET(FunctionDescriptionRecord, next, 0);
QEL_ABI_OFFSET(FunctionDescriptionRecord, reserved, 8);
QEL_ABI_OFFSET(FunctionDescriptionRecord, dispatchContext, 16);
QEL_ABI_OFFSET(FunctionDescriptionRecord, name, 24);
QEL_ABI_OFFSET(FunctionDescriptionRecord, nameSpace, 32);
QEL_ABI_OFFSET(FunctionDescriptionRecord, arguments, 40);
QEL_ABI_OFFSET(FunctionDescriptionRecord, argumentCount, 48);
QEL_ABI_OFFSET(FunctionDescriptionRecord, returnType, 52);
QEL_ABI_OFFSET(FunctionDescriptionRecord, returnElementType, 56);
QEL_ABI_OFFSET(FunctionDescriptionRecord, returnTypeName, 60);
QEL_ABI_OFFSET(FunctionDescriptionRecord, description, 68);
QEL_ABI_OFFSET(FunctionDescriptionRecord, help, 76);
QEL_ABI_OFFSET(FunctionDescriptionRecord, threadSafe, 84);
QEL_ABI_OFFSET(FunctionDescriptionRecord, asyncResultTypeName, 85);
QEL_ABI_OFFSET(FunctionDescriptionRecord, tags, 93);
QEL_ABI_OFFSET(FunctionDescriptionRecord, tagCount, 101);

QEL_ABI_SIZE(ArgumentLocationRecord, 12);
QEL_ABI_OFFSET(ArgumentLocationRecord, location, 8);

QEL_ABI_SIZE(EndpointStringListRecord, 20);
QEL_ABI_OFFSET(EndpointStringListRecord, texts, 8);
QEL_ABI_OFFSET(EndpointStringListRecord, count, 16);

QEL_ABI_SIZE(EndpointRecord, 154);
QEL_ABI_OFFSET(EndpointRecord, function, 0);
QEL_ABI_OFFSET(EndpointRecord, dispatch, 105);
QEL_ABI_OFFSET(EndpointRecord, argumentLocations, 113);
QEL_ABI_OFFSET(EndpointRecord, urlTemplate, 121);
QEL_ABI_OFFSET(EndpointRecord, method, 129);
QEL_ABI_OFFSET(EndpointRecord, flags, 133);
QEL_ABI_OFFSET(EndpointRecord, stringLists, 134);
QEL_ABI_OFFSET(EndpointRecord, stringListCount, 142);
QEL_ABI_OFFSET(EndpointRecord, secondText, 146);

QEL_ABI_SIZE(ArgumentRecord, 41);
QEL_ABI_OFFSET(ArgumentRecord, next, 0);
QEL_ABI_OFFSET(ArgumentRecord, name, 8);
QEL_ABI_OFFSET(ArgumentRecord, description, 16);
QEL_ABI_OFFSET(ArgumentRecord, type, 24);
QEL_ABI_OFFSET(ArgumentRecord, elementType, 28);
QEL_ABI_OFFSET(ArgumentRecord, typeName, 32);
QEL_ABI_OFFSET(ArgumentRecord, optional, 40);

QEL_ABI_SIZE(EventRecord, 52);
QEL_ABI_OFFSET(EventRecord, next, 0);
QEL_ABI_OFFSET(EventRecord, name, 8);
QEL_ABI_OFFSET(EventRecord, nameSpace, 16);
QEL_ABI_OFFSET(EventRecord, payloadTypeName, 24);
QEL_ABI_OFFSET(EventRecord, description, 32);
QEL_ABI_OFFSET(EventRecord, tags, 40);
QEL_ABI_OFFSET(EventRecord, tagCount, 48);

QEL_ABI_SIZE(TypeRecord, 68);
QEL_ABI_OFFSET(TypeRecord, next, 0);
QEL_ABI_OFFSET(TypeRecord, name, 8);
QEL_ABI_OFFSET(TypeRecord, nameSpace, 16);
QEL_ABI_OFFSET(TypeRecord, size, 24);
QEL_ABI_OFFSET(TypeRecord, description, 28);
QEL_ABI_OFFSET(TypeRecord, tags, 36);
QEL_ABI_OFFSET(TypeRecord, tagCount, 44);
QEL_ABI_OFFSET(TypeRecord, fields, 48);
QEL_ABI_OFFSET(TypeRecord, enumerators, 56);
QEL_ABI_OFFSET(TypeRecord, count, 64);

QEL_ABI_SIZE(FieldRecord, 45);
QEL_ABI_OFFSET(FieldRecord, next, 0);
QEL_ABI_OFFSET(FieldRecord, name, 8);
QEL_ABI_OFFSET(FieldRecord, description, 16);
QEL_ABI_OFFSET(FieldRecord, offset, 24);
QEL_ABI_OFFSET(FieldRecord, type, 28);
QEL_ABI_OFFSET(FieldRecord, elementType, 32);
QEL_ABI_OFFSET(FieldRecord, typeName, 36);
QEL_ABI_OFFSET(FieldRecord, optional, 44);

QEL_ABI_SIZE(EnumeratorRecord, 28);
QEL_ABI_OFFSET(EnumeratorRecord, next, 0);
QEL_ABI_OFFSET(EnumeratorRecord, name, 8);
QEL_ABI_OFFSET(EnumeratorRecord, description, 16);
QEL_ABI_OFFSET(EnumeratorRecord, value, 24);

#endif /* other platforms follow the same rules without a pinned table */

#undef QEL_ABI_SIZE
#undef QEL_ABI_OFFSET

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* QEL_FRAMEWORK_HOST_HOSTABI_H */
