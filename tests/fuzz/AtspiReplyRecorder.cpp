// Records real AT-SPI answers as seeds for the reply fuzzer.
//
//   velmora-atspi-reply-recorder OUTPUT_DIR PROGRAM [ARGUMENT...]
//
// Starts PROGRAM, waits until it shows on the accessibility bus, then walks its
// tree breadth-first (at most 40 objects) and asks each object every question the
// pipelined reader asks (role, name, identifier, all its Accessible properties, interfaces, states,
// children, child count, child at index 0, screen extents, current value, character count, text,
// and the application's cache once). Each answer, error answers included, is written to OUTPUT_DIR
// as the bytes of the message as they came over the bus (marshalled again by libdbus), one message
// per file, named after the program, the question and a hash of the bytes so that identical answers
// are kept once; answers over 16 KiB are left out to keep the seeds small. The program is stopped
// by its process id at the end. Run it on a desktop with an accessibility bus (scripts/desktop); it
// exits 1 when nothing was recorded.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <dbus/dbus.h>

namespace {

constexpr int kTimeoutMs = 2500;
constexpr size_t kMaxObjects = 40;
constexpr size_t kMaxSeedBytes = 16 * 1024;

struct Address {
    std::string busName;
    std::string path;
};

// The answer to a method call, error answers included; null when none came.
DBusMessage* call(DBusConnection* bus, DBusMessage* message) {
    DBusPendingCall* pending = nullptr;
    DBusMessage* reply = nullptr;
    if (dbus_connection_send_with_reply(bus, message, &pending, kTimeoutMs) && pending != nullptr) {
        dbus_pending_call_block(pending);
        reply = dbus_pending_call_steal_reply(pending);
        dbus_pending_call_unref(pending);
    }
    dbus_message_unref(message);
    return reply;
}

// The references of a GetChildren answer, read with libdbus.
std::vector<Address> referencesOf(DBusMessage* reply) {
    std::vector<Address> out;
    DBusMessageIter top;
    if (reply == nullptr || dbus_message_get_type(reply) != DBUS_MESSAGE_TYPE_METHOD_RETURN ||
        !dbus_message_iter_init(reply, &top) ||
        dbus_message_iter_get_arg_type(&top) != DBUS_TYPE_ARRAY) {
        return out;
    }
    DBusMessageIter array;
    dbus_message_iter_recurse(&top, &array);
    while (dbus_message_iter_get_arg_type(&array) == DBUS_TYPE_STRUCT) {
        DBusMessageIter item;
        dbus_message_iter_recurse(&array, &item);
        const char* name = nullptr;
        const char* path = nullptr;
        dbus_message_iter_get_basic(&item, &name);
        dbus_message_iter_next(&item);
        dbus_message_iter_get_basic(&item, &path);
        out.push_back({name, path});
        dbus_message_iter_next(&array);
    }
    return out;
}

DBusMessage* method(const Address& to, const char* interface, const char* member) {
    return dbus_message_new_method_call(to.busName.c_str(), to.path.c_str(), interface, member);
}

DBusMessage* property(const Address& to, const char* interface, const char* name) {
    DBusMessage* message = method(to, "org.freedesktop.DBus.Properties", "Get");
    dbus_message_append_args(message, DBUS_TYPE_STRING, &interface, DBUS_TYPE_STRING, &name,
                             DBUS_TYPE_INVALID);
    return message;
}

DBusMessage* withInts(DBusMessage* message, std::vector<dbus_int32_t> values) {
    for (dbus_int32_t& value : values) {
        dbus_message_append_args(message, DBUS_TYPE_INT32, &value, DBUS_TYPE_INVALID);
    }
    return message;
}

// The body of a marshalled message: what follows its header and padding.
std::string bodyOf(const std::string& message) {
    if (message.size() < 16) {
        return {};
    }
    auto word = [&](size_t at) {
        const auto* b = reinterpret_cast<const unsigned char*>(message.data() + at);
        return message[0] == 'B'
                   ? (uint32_t{b[0]} << 24) | (uint32_t{b[1]} << 16) | (uint32_t{b[2]} << 8) | b[3]
                   : (uint32_t{b[3]} << 24) | (uint32_t{b[2]} << 16) | (uint32_t{b[1]} << 8) | b[0];
    };
    const size_t header = (16 + size_t{word(12)} + 7) / 8 * 8;
    return header <= message.size() ? message.substr(header) : std::string();
}

class Recorder {
  public:
    Recorder(std::filesystem::path directory, std::string program)
        : directory_(std::move(directory)), program_(std::move(program)) {}

    // Writes the answer; keeps the message for the caller.
    DBusMessage* keep(const char* question, DBusMessage* reply) {
        if (reply == nullptr) {
            return nullptr;
        }
        char* bytes = nullptr;
        int length = 0;
        if (dbus_message_marshal(reply, &bytes, &length) && length > 0 &&
            static_cast<size_t>(length) <= kMaxSeedBytes) {
            std::string content(bytes, static_cast<size_t>(length));
            // Answers that differ only in their serials and addresses are one seed.
            const char* signature = dbus_message_get_signature(reply);
            const size_t hash = std::hash<std::string>{}(
                std::to_string(dbus_message_get_type(reply)) + "/" +
                (signature != nullptr ? signature : "") + "/" + bodyOf(content));
            if (seen_.insert(hash).second) {
                char name[64];
                std::snprintf(name, sizeof name, "-%016zx", hash);
                std::ofstream(directory_ / (program_ + "-" + question + name), std::ios::binary)
                    << content;
                ++written_;
            }
        }
        dbus_free(bytes);
        return reply;
    }
    void record(const char* question, DBusMessage* reply) {
        if (DBusMessage* kept = keep(question, reply)) {
            dbus_message_unref(kept);
        }
    }
    size_t written() const { return written_; }

  private:
    std::filesystem::path directory_;
    std::string program_;
    std::set<size_t> seen_;
    size_t written_ = 0;
};

std::string accessibilityBusAddress() {
    if (const char* address = std::getenv("AT_SPI_BUS_ADDRESS"); address && *address) {
        return address;
    }
    DBusError error;
    dbus_error_init(&error);
    DBusConnection* session = dbus_bus_get(DBUS_BUS_SESSION, &error);
    dbus_error_free(&error);
    if (session == nullptr) {
        return {};
    }
    DBusMessage* reply = call(session, dbus_message_new_method_call("org.a11y.Bus", "/org/a11y/bus",
                                                                    "org.a11y.Bus", "GetAddress"));
    std::string address;
    const char* text = nullptr;
    if (reply != nullptr &&
        dbus_message_get_args(reply, nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID)) {
        address = text;
    }
    if (reply != nullptr) {
        dbus_message_unref(reply);
    }
    return address;
}

// The program's application on the bus: the registry's child whose connection
// belongs to this process.
std::optional<Address> findApplication(DBusConnection* bus, pid_t processId) {
    DBusMessage* reply =
        call(bus, method({"org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root"},
                         "org.a11y.atspi.Accessible", "GetChildren"));
    const auto applications = referencesOf(reply);
    if (reply != nullptr) {
        dbus_message_unref(reply);
    }
    for (const auto& application : applications) {
        DBusMessage* question =
            dbus_message_new_method_call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                         "org.freedesktop.DBus", "GetConnectionUnixProcessID");
        const char* name = application.busName.c_str();
        dbus_message_append_args(question, DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID);
        DBusMessage* answer = call(bus, question);
        dbus_uint32_t pid = 0;
        bool ours =
            answer != nullptr &&
            dbus_message_get_args(answer, nullptr, DBUS_TYPE_UINT32, &pid, DBUS_TYPE_INVALID) &&
            static_cast<pid_t>(pid) == processId;
        if (answer != nullptr) {
            dbus_message_unref(answer);
        }
        if (ours) {
            return application;
        }
    }
    return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s OUTPUT_DIR PROGRAM [ARGUMENT...]\n", argv[0]);
        return 64;
    }
    std::filesystem::path directory = argv[1];
    std::filesystem::create_directories(directory);

    const pid_t child = fork();
    if (child == 0) {
        execvp(argv[2], argv + 2);
        _exit(127);
    }
    if (child < 0) {
        return 1;
    }

    const std::string address = accessibilityBusAddress();
    DBusError error;
    dbus_error_init(&error);
    DBusConnection* bus = address.empty() ? nullptr : dbus_connection_open(address.c_str(), &error);
    if (bus == nullptr || !dbus_bus_register(bus, &error)) {
        dbus_error_free(&error);
        kill(child, SIGTERM);
        waitpid(child, nullptr, 0);
        std::fprintf(stderr, "no accessibility bus\n");
        return 1;
    }

    // The program shows on the bus once its toolkit is up; give it ten seconds.
    std::optional<Address> application;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!(application = findApplication(bus, child)) &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    // And a moment more for its windows to fill in.
    std::this_thread::sleep_for(std::chrono::milliseconds(application ? 1500 : 0));

    Recorder recorder(directory, std::filesystem::path(argv[2]).filename().string());
    if (application) {
        recorder.record("cache", call(bus, method({application->busName, "/org/a11y/atspi/cache"},
                                                  "org.a11y.atspi.Cache", "GetItems")));
        std::deque<Address> queue{*application};
        size_t visited = 0;
        while (!queue.empty() && visited < kMaxObjects) {
            const Address object = queue.front();
            queue.pop_front();
            ++visited;
            const char* accessible = "org.a11y.atspi.Accessible";
            recorder.record("role", call(bus, method(object, accessible, "GetRole")));
            recorder.record("name", call(bus, property(object, accessible, "Name")));
            recorder.record("id", call(bus, property(object, accessible, "AccessibleId")));
            DBusMessage* everything = method(object, "org.freedesktop.DBus.Properties", "GetAll");
            dbus_message_append_args(everything, DBUS_TYPE_STRING, &accessible, DBUS_TYPE_INVALID);
            recorder.record("properties", call(bus, everything));
            recorder.record("interfaces", call(bus, method(object, accessible, "GetInterfaces")));
            recorder.record("states", call(bus, method(object, accessible, "GetState")));
            recorder.record("count", call(bus, property(object, accessible, "ChildCount")));
            recorder.record(
                "at", call(bus, withInts(method(object, accessible, "GetChildAtIndex"), {0})));
            DBusMessage* extents = method(object, "org.a11y.atspi.Component", "GetExtents");
            dbus_uint32_t screen = 0;
            dbus_message_append_args(extents, DBUS_TYPE_UINT32, &screen, DBUS_TYPE_INVALID);
            recorder.record("extents", call(bus, extents));
            recorder.record("value",
                            call(bus, property(object, "org.a11y.atspi.Value", "CurrentValue")));
            recorder.record("characters",
                            call(bus, property(object, "org.a11y.atspi.Text", "CharacterCount")));
            recorder.record(
                "text",
                call(bus, withInts(method(object, "org.a11y.atspi.Text", "GetText"), {0, -1})));
            DBusMessage* children =
                recorder.keep("children", call(bus, method(object, accessible, "GetChildren")));
            for (const auto& reference : referencesOf(children)) {
                if (reference.path != "/org/a11y/atspi/null") {
                    queue.push_back(reference);
                }
            }
            if (children != nullptr) {
                dbus_message_unref(children);
            }
        }
    }

    kill(child, SIGTERM);
    waitpid(child, nullptr, 0);
    std::printf("%s: %zu answers recorded\n", argv[2], recorder.written());
    return recorder.written() > 0 ? 0 : 1;
}
