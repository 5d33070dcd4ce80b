#include <gtest/gtest.h>
TEST(P,P){}
