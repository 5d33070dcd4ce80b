#include "ZelToken.h"

#include <mutex>
#include <random>

namespace {

// Opened once before main and kept until exit; only the seed is drawn from it.
std::random_device gRandomDevice("/dev/urandom");
std::mt19937 gTokenEngine(static_cast<std::mt19937::result_type>(gRandomDevice()));
const ZelTokenDistribution gTokenDistribution(1, 0x7FFFFFFF);
std::mutex gTokenLock;  // a leaf: guards gTokenEngine

}  // namespace

namespace ZelToken {

uint32_t draw() {
    std::lock_guard<std::mutex> guard(gTokenLock);
    return gTokenDistribution(gTokenEngine);
}

const ZelTokenDistribution& distribution() {
    return gTokenDistribution;
}

}  // namespace ZelToken
