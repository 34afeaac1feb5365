// Logarithm and power of two from basic arithmetic: agreement with the C library's functions to
// within a few units in the last place, exact results at powers of two, and the edge values.
#include "image/PortableMath.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

TEST(PortableMath, Log2AgreesWithTheLibrary) {
    // Both sides of the switch at the square root of one half, small and huge numbers.
    for (double x : {1e-300, 3.7e-9, 0.0123, 0.5, 0.7071067811865, 0.70710678118655, 0.99999,
                     1.00001, 1.41421356, 2.5, 3.0, 10.0, 123456.789, 6.02e23, 1.7e308}) {
        const double want = std::log2(x);
        EXPECT_NEAR(DQPortableLog2(x), want, 4e-16 * std::max(1.0, std::fabs(want))) << x;
    }
}

TEST(PortableMath, Exp2AgreesWithTheLibrary) {
    for (double t : {-1074.0, -1022.5, -200.25, -30.3, -1.0001, -0.5, -1e-9, 0.0, 1e-9, 0.3333,
                     0.6931, 0.999999, 7.77, 100.1, 1023.9}) {
        const double want = std::exp2(t);
        EXPECT_NEAR(DQPortableExp2(t), want, 1e-15 * want) << t;
    }
}

TEST(PortableMath, PowersOfTwoAreExact) {
    for (int e : {-1074, -1000, -3, -1, 0, 1, 5, 52, 1023}) {
        EXPECT_EQ(DQPortableExp2(e), std::ldexp(1.0, e)) << e;
        if (e > -1074) {
            EXPECT_EQ(DQPortableLog2(std::ldexp(1.0, e)), e) << e;
        }
    }
}

TEST(PortableMath, EdgeValues) {
    EXPECT_EQ(DQPortableLog2(0.0), -kInf);
    EXPECT_TRUE(std::isnan(DQPortableLog2(-1.0)));
    EXPECT_TRUE(std::isnan(DQPortableLog2(std::nan(""))));
    EXPECT_EQ(DQPortableLog2(kInf), kInf);
    EXPECT_EQ(DQPortableExp2(-2000.0), 0.0);
    EXPECT_EQ(DQPortableExp2(2000.0), kInf);
    EXPECT_EQ(DQPortableExp2(-kInf), 0.0);
    EXPECT_TRUE(std::isnan(DQPortableExp2(std::nan(""))));
}

} // namespace
