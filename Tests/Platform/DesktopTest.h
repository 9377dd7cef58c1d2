#pragma once

#include "Platform/Views/NoticeStyle.h"

#include <QApplication>

#include <gtest/gtest.h>

/// A test of something that is drawn, or that turns the event loop: there is a QApplication. It is never
/// taken down, since what Qt keeps for the whole process goes in no order with it.
class DesktopTest : public testing::Test {
protected:
    DesktopTest() {
        static int argumentCount = 1;
        static char name[] = "test";
        static char *arguments[] = { name, nullptr };
        [[maybe_unused]] static const auto *const application = [] {
            QApplication::setStyle(new NoticeStyle);
            return new QApplication(argumentCount, arguments);
        }();
    }
};
