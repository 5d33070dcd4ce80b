// Request latency and throughput of CLIENTS processes, each waiting for every
// reply before it sends the next request.
//   zeld_ipc_bench zeld CLIENTS CYCLES [FILL]
//       the daemon under $ZELD_ROOT through libzelclient: per cycle a start
//       request, a started and a completed report of bench<client>/task0;
//       FILL tasks fill<i>/task0 are started first and left running.
//   zeld_ipc_bench raw CLIENTS CYCLES
//       three 256-byte requests per cycle to one server over a Unix socket;
//       each 64-byte reply comes through a socket the client listens on and
//       is handed from the client's receiving thread to the waiting caller.
//   zeld_ipc_bench dbus CLIENTS CYCLES
//       three method calls per cycle (256 bytes in, 64 out) to one server
//       through the bus at $DBUS_SESSION_BUS_ADDRESS.
// Prints one JSON object a line per request kind and one for all of them:
// median, p99 and max latency (µs), the requests that stalled (over 200 ms)
// and the requests per second of all clients, with and without the stalls.
#include <dbus/dbus.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "zel/client/ZelClient.h"

namespace {

using Clock = std::chrono::steady_clock;
using Samples = std::vector<std::vector<double>>;  // micros per request kind
using Cycle = std::function<void(Samples&)>;
constexpr size_t kRequestBytes = 256, kReplyBytes = 64;
const zel::client::Millis kTimeout{10000};

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "zeld_ipc_bench: %s\n", what);
    _exit(2);
}

double nowMicros() {
    return std::chrono::duration<double, std::micro>(Clock::now().time_since_epoch()).count();
}

// Times one request into `into`.
template <typename F>
auto timed(std::vector<double>& into, F&& request) {
    const double start = nowMicros();
    auto result = request();
    into.push_back(nowMicros() - start);
    return result;
}

bool moveAll(int fd, void* data, size_t size, bool write) {
    auto* bytes = static_cast<uint8_t*>(data);
    for (size_t done = 0; done < size;) {
        const ssize_t n = write ? ::write(fd, bytes + done, size - done) : read(fd, bytes + done, size - done);
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

// Forks a process running `body`; returns once it wrote its ready byte.
pid_t forkReady(const std::function<void(int readyFd)>& body) {
    int ready[2];
    if (pipe(ready) != 0) fail("pipe");
    const pid_t pid = fork();
    if (pid == 0) {
        close(ready[0]);
        body(ready[1]);
        _exit(0);
    }
    char byte;
    close(ready[1]);
    if (!moveAll(ready[0], &byte, 1, false)) fail("a process did not start");
    close(ready[0]);
    return pid;
}
void signalReady(int fd) {
    char byte = 'r';
    if (!moveAll(fd, &byte, 1, true)) _exit(2);
    close(fd);
}

int unixSocket(const std::string& path, bool listening) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", path.c_str());
    const auto* raw = reinterpret_cast<const sockaddr*>(&address);
    const bool ok = listening ? bind(fd, raw, sizeof(address)) == 0 && listen(fd, 16) == 0
                              : connect(fd, raw, sizeof(address)) == 0;
    if (fd < 0 || !ok) fail(path.c_str());
    return fd;
}

// One server thread serves every client in turn, as the daemon serves its
// requests one at a time. A client first sends the path it listens on.
void rawServer(const std::string& dir, int readyFd) {
    const int listener = unixSocket(dir + "/server", true);
    signalReady(readyFd);
    std::vector<pollfd> polled{{listener, POLLIN, 0}};
    std::vector<int> replyTo{-1};
    uint8_t request[kRequestBytes], reply[kReplyBytes] = {0x5A};
    for (;;) {
        if (poll(polled.data(), polled.size(), -1) <= 0) continue;
        for (size_t i = 1; i < polled.size(); ++i) {
            if (!(polled[i].revents & (POLLIN | POLLHUP))) continue;
            if (moveAll(polled[i].fd, request, sizeof(request), false)) {
                moveAll(replyTo[i], reply, sizeof(reply), true);
            } else {  // that client is done
                close(polled[i].fd);
                close(replyTo[i]);
                polled[i].fd = -1;
            }
        }
        if (polled[0].revents & POLLIN) {
            const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            char path[sizeof(sockaddr_un::sun_path)];
            if (fd < 0 || !moveAll(fd, path, sizeof(path), false)) fail("raw accept");
            polled.push_back({fd, POLLIN, 0});
            replyTo.push_back(unixSocket(path, false));
        }
    }
}

class RawClient {
public:
    explicit RawClient(const std::string& dir) {
        char path[sizeof(sockaddr_un::sun_path)] = {};
        std::snprintf(path, sizeof(path), "%s/client%d", dir.c_str(), getpid());
        const int listener = unixSocket(path, true);
        mRequestFd = unixSocket(dir + "/server", false);
        if (!moveAll(mRequestFd, path, sizeof(path), true)) fail("raw connect");
        const int replyFd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        std::thread([this, replyFd] {
            uint8_t reply[kReplyBytes];
            while (moveAll(replyFd, reply, sizeof(reply), false)) {
                std::lock_guard<std::mutex> guard(mLock);
                ++mReplies;
                mArrived.notify_one();
            }
        }).detach();
    }
    bool exchange() {
        uint8_t request[kRequestBytes] = {0x5A};
        if (!moveAll(mRequestFd, request, sizeof(request), true)) return false;
        std::unique_lock<std::mutex> lock(mLock);
        mArrived.wait(lock, [&] { return mReplies > mSent; });
        ++mSent;
        return true;
    }

private:
    int mRequestFd = -1;
    std::mutex mLock;
    std::condition_variable mArrived;
    uint64_t mReplies = 0, mSent = 0;
};

constexpr const char* kBusName = "com.ostrel.zeld.Bench";
DBusConnection* busConnection() {
    DBusError error;
    dbus_error_init(&error);
    DBusConnection* connection = dbus_bus_get_private(DBUS_BUS_SESSION, &error);
    if (connection == nullptr) fail(error.message);
    return connection;
}
DBusMessage* withBytes(DBusMessage* message, size_t size) {
    static const uint8_t bytes[kRequestBytes] = {0x5A};
    const uint8_t* data = bytes;
    dbus_message_append_args(message, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE, &data, static_cast<int>(size),
                             DBUS_TYPE_INVALID);
    return message;
}

void dbusServer(int readyFd) {
    DBusConnection* bus = busConnection();
    if (dbus_bus_request_name(bus, kBusName, DBUS_NAME_FLAG_DO_NOT_QUEUE, nullptr) !=
        DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER) {
        fail("bus name taken");
    }
    signalReady(readyFd);
    while (dbus_connection_read_write(bus, -1)) {
        while (DBusMessage* call = dbus_connection_pop_message(bus)) {
            if (dbus_message_get_type(call) == DBUS_MESSAGE_TYPE_METHOD_CALL) {
                DBusMessage* reply = withBytes(dbus_message_new_method_return(call), kReplyBytes);
                dbus_connection_send(bus, reply, nullptr);
                dbus_message_unref(reply);
                dbus_connection_flush(bus);
            }
            dbus_message_unref(call);
        }
    }
}

bool dbusCall(DBusConnection* bus) {
    DBusMessage* call =
            withBytes(dbus_message_new_method_call(kBusName, "/bench", kBusName, "Request"), kRequestBytes);
    DBusMessage* reply = dbus_connection_send_with_reply_and_block(bus, call, -1, nullptr);
    dbus_message_unref(call);
    if (reply != nullptr) dbus_message_unref(reply);
    return reply != nullptr;
}

// Three requests of one kind per cycle, as many as a daemon cycle makes.
Cycle threeTimes(std::function<bool()> exchange) {
    return [exchange](Samples& samples) {
        for (int i = 0; i < 3; ++i) {
            if (!timed(samples[0], exchange)) fail("exchange failed");
        }
    };
}

std::unique_ptr<zel::client::ZelClient> zeldClient() {
    zel::client::ZelClientError error;
    auto client = zel::client::ZelClient::connect(zel::client::ZelClientOptions(), &error);
    if (client == nullptr) fail("zeld is not running");
    return client;
}
// Starts `task` and reports it started; stops there when `complete` is false.
void runTask(zel::client::ZelClient& client, const std::string& comp, bool complete, Samples& samples) {
    const auto grant = timed(samples[0], [&] { return client.requestStart(comp, "task0", false, -1, kTimeout); });
    if (!grant.ok() || !grant->canStart) fail("start refused");
    const auto started =
            timed(samples[1], [&] { return client.reportStarted(comp, "task0", grant->token, -1, kTimeout); });
    // Status 5 (no record): a purge that clears the previous cycle's stop
    // drops the key from the task table, whatever the record's state, so a
    // report that follows it finds nothing.
    if (!started.ok() || (started->status != 0 && started->status != 5)) fail("started refused");
    if (!complete || started->status != 0) return;
    const auto done = timed(samples[2], [&] { return client.reportCompleted(comp, "task0", grant->token, kTimeout); });
    if (!done.ok() || (done->status != 0 && done->status != 5)) fail("completed refused");
}

// The cycle of client `index` of `system`, made in the client's own process.
Cycle makeCycle(const std::string& system, int index, const std::string& dir) {
    if (system == "raw") {
        auto client = std::make_shared<RawClient>(dir);
        return threeTimes([client] { return client->exchange(); });
    }
    if (system == "dbus") {
        DBusConnection* bus = busConnection();
        return threeTimes([bus] { return dbusCall(bus); });
    }
    std::shared_ptr<zel::client::ZelClient> client = zeldClient();
    const std::string comp = "bench" + std::to_string(index);
    return [client, comp](Samples& samples) { runTask(*client, comp, true, samples); };
}

// A request that lands in a purge waits for the next memory report, up to a
// second later; every other client queues behind it. Such requests are
// counted as stalled, and the throughput is also given without the time they
// held all clients up (their latency shared among the clients).
constexpr double kStallMicros = 200000;

void printFigures(const char* system, int clients, const char* kind, std::vector<double> micros, double seconds,
                  double stalledSeconds) {
    if (micros.empty()) return;
    std::sort(micros.begin(), micros.end());
    const auto stalled = micros.end() - std::lower_bound(micros.begin(), micros.end(), kStallMicros);
    std::printf("{\"system\": \"%s\", \"clients\": %d, \"kind\": \"%s\", \"requests\": %zu, \"median_us\": %.1f, "
                "\"p99_us\": %.1f, \"max_us\": %.1f, \"stalled\": %td, \"requests_per_s\": %.0f, "
                "\"requests_per_s_unstalled\": %.0f}\n",
                system, clients, kind, micros.size(), micros[micros.size() / 2], micros[micros.size() * 99 / 100],
                micros.back(), stalled, static_cast<double>(micros.size()) / seconds,
                static_cast<double>(micros.size()) / (seconds - stalledSeconds));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) fail("usage: zeld_ipc_bench zeld|raw|dbus CLIENTS CYCLES [FILL]");
    const std::string system = argv[1];
    const int clients = std::atoi(argv[2]), cycles = std::atoi(argv[3]), fill = argc > 4 ? std::atoi(argv[4]) : 0;
    const std::vector<const char*> kinds =
            system == "zeld" ? std::vector<const char*>{"start", "started", "completed"} : std::vector{"exchange"};
    char dir[] = "/tmp/zeld-ipc-bench-XXXXXX";
    if (mkdtemp(dir) == nullptr) fail("mkdtemp");
    pid_t server = 0;
    if (system == "raw") server = forkReady([&](int fd) { rawServer(dir, fd); });
    if (system == "dbus") server = forkReady(dbusServer);
    if (fill > 0) {  // fill the tables from a process of its own, then leave it all running
        waitpid(forkReady([&](int fd) {
                    Samples ignored(3);
                    auto client = zeldClient();
                    for (int i = 0; i < fill; ++i) runTask(*client, "fill" + std::to_string(i), false, ignored);
                    signalReady(fd);
                }),
                nullptr, 0);
    }

    int go[2];
    std::vector<int> results;
    std::vector<pid_t> children;
    if (pipe(go) != 0) fail("pipe");
    for (int index = 0; index < clients; ++index) {
        int result[2];
        if (pipe(result) != 0) fail("pipe");
        children.push_back(forkReady([&](int readyFd) {  // runs its cycles once `go` closes; sends its samples and end time
            close(go[1]);
            Samples samples(kinds.size());
            {
                // Destroyed before the figures go out: a zeld client unregisters
                // its callback, which the daemon would otherwise keep for good.
                const Cycle cycle = makeCycle(system, index, dir);
                signalReady(readyFd);
                char byte;
                if (read(go[0], &byte, 1) != 0) _exit(2);
                for (int i = 0; i < cycles; ++i) cycle(samples);
                samples.push_back({nowMicros()});
            }
            for (auto& kind : samples) {
                const uint64_t count = kind.size();
                moveAll(result[1], const_cast<uint64_t*>(&count), sizeof(count), true);
                moveAll(result[1], kind.data(), count * sizeof(double), true);
            }
            _exit(0);
        }));
        close(result[1]);
        results.push_back(result[0]);
    }
    const double start = nowMicros();
    close(go[1]);
    Samples all(kinds.size() + 1);
    for (int fd : results) {
        for (auto& kind : all) {
            uint64_t count = 0;
            if (!moveAll(fd, &count, sizeof(count), false)) fail("a client failed");
            const size_t before = kind.size();
            kind.resize(before + count);
            if (!moveAll(fd, kind.data() + before, count * sizeof(double), false)) fail("a client failed");
        }
    }
    for (pid_t child : children) waitpid(child, nullptr, 0);
    const double seconds = (*std::max_element(all.back().begin(), all.back().end()) - start) / 1e6;
    std::vector<double> every;
    for (size_t k = 0; k < kinds.size(); ++k) every.insert(every.end(), all[k].begin(), all[k].end());
    double stalledSeconds = 0;
    for (double micros : every) stalledSeconds += micros >= kStallMicros ? micros / 1e6 / clients : 0;
    for (size_t k = 0; k < kinds.size() && kinds.size() > 1; ++k) {  // a kind's rate is its share of the run
        printFigures(system.c_str(), clients, kinds[k], all[k], seconds, stalledSeconds);
    }
    printFigures(system.c_str(), clients, "all", every, seconds, stalledSeconds);
    if (server != 0) kill(server, SIGKILL);
    std::filesystem::remove_all(dir);
    return 0;
}
