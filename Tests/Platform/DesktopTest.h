#pragma once

#include <QApplication>

#include <gtest/gtest.h>

/// A test of something that is drawn: there is a QApplication.
class DesktopTest : public testing::Test {
protected:
    DesktopTest() {
        static int argumentCount = 1;
        static char name[] = "test";
        static char *arguments[] = { name, nullptr };
        static QApplication application(argumentCount, arguments);
    }
};
