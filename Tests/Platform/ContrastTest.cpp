#include "Platform/Views/Contrast.h"

#include "Tests/Fakes/Printing.h"

#include <gtest/gtest.h>

namespace {

TEST(Contrast, IsTheUsualMeasure) {
    EXPECT_NEAR(Contrast::ratio(Qt::black, Qt::white), 21, 0.01);
    EXPECT_NEAR(Contrast::ratio(Qt::white, Qt::black), 21, 0.01);
    EXPECT_NEAR(Contrast::ratio(Qt::red, Qt::red), 1, 0.0001);
    EXPECT_NEAR(Contrast::ratio(QColor(0x77, 0x77, 0x77), Qt::white), 4.48, 0.01);
    EXPECT_NEAR(Contrast::ratio(QColor(0x76, 0x76, 0x76), Qt::white), 4.54, 0.01);
    EXPECT_NEAR(Contrast::ratio(Qt::blue, Qt::white), 8.59, 0.01);
}

TEST(Contrast, TextOnAnyGroundIsReadable) {
    for (int red = 0; red <= 255; red += 15) {
        for (int green = 0; green <= 255; green += 5) {
            for (int blue = 0; blue <= 255; blue += 15) {
                const QColor ground(red, green, blue);
                ASSERT_GE(Contrast::ratio(Contrast::textOn(ground), ground), Contrast::readable)
                    << ground.name().toStdString();
            }
        }
    }
}

TEST(Contrast, TextIsLightOnTheAccentAndDarkOnWhite) {
    EXPECT_EQ(Contrast::textOn(QColor(30, 34, 52)), QColor(Qt::white));
    EXPECT_LT(Contrast::textOn(Qt::white).lightness(), 64);
}

} // namespace
