// A client process for the end-to-end tables: it makes one start request
// through libzelclient, prints "id <client id>" and "reply <token> <canStart>
// <status>", then waits to be killed (a client that dies before an answer).
//   zeld_client_peer COMP TASK NOTIFY DURATION
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "zel/client/ZelClient.h"

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    zel::client::ZelClientError error;
    auto client = zel::client::ZelClient::connect({}, &error);
    if (client == nullptr) return 1;
    std::printf("id %d\n", client->clientId());
    const auto reply = client->requestStart(argv[1], argv[2], std::atoi(argv[3]) != 0,
                                            std::atoi(argv[4]), std::chrono::seconds(5));
    if (!reply.ok()) return 1;
    std::printf("reply %d %d %d\n", reply->token, reply->canStart ? 1 : 0, reply->status);
    std::fflush(stdout);
    for (;;) std::this_thread::sleep_for(std::chrono::seconds(60));
}
