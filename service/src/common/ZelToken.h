#pragma once

#include <cstdint>

// A uniform draw over the closed range [a, b] by rejection: the low bits of one
// engine output, as many as the range needs, drawn again while they fall
// outside it. Tokens draw 31 bits and reject 0x7FFFFFFF, so one engine state
// gives the same tokens whatever the standard library.
class ZelTokenDistribution {
public:
    using result_type = uint32_t;

    constexpr ZelTokenDistribution(result_type a, result_type b)
        : mA(a), mB(b), mMask(maskFor(b - a)) {}

    constexpr result_type a() const { return mA; }
    constexpr result_type b() const { return mB; }
    constexpr result_type min() const { return mA; }
    constexpr result_type max() const { return mB; }

    // The engine must give 32 random bits per call (std::mt19937 does).
    template <typename Engine>
    result_type operator()(Engine& engine) const {
        static_assert(Engine::min() == 0 && Engine::max() == 0xFFFFFFFFu,
                      "one draw takes 32 random bits");
        result_type value = 0;
        do {
            value = static_cast<result_type>(engine()) & mMask;
        } while (value > mB - mA);
        return mA + value;
    }

private:
    // All ones up to the highest bit of `largest`.
    static constexpr result_type maskFor(result_type largest) {
        result_type mask = 0;
        while (mask < largest) mask = (mask << 1) | 1u;
        return mask;
    }

    result_type mA;
    result_type mB;
    result_type mMask;
};

// The token source shared by every record: one Mersenne Twister engine,
// seeded once from "/dev/urandom" before main, and one distribution over 1 to
// 0x7FFFFFFF. Both live in ZelToken.cpp; draws are serialised by a lock of
// their own (a leaf), which changes nothing in the sequence one thread sees.
namespace ZelToken {

// One token, never 0 and never with the top bit set.
uint32_t draw();
// The distribution every token is drawn from.
const ZelTokenDistribution& distribution();

}  // namespace ZelToken
