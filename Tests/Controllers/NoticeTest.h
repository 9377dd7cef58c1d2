#pragma once

#include "Platform/Views/ImageView.h"
#include "Platform/Views/LayerView.h"
#include "Platform/Views/PushButton.h"
#include "Platform/Views/TextField.h"
#include "Tests/Fakes/NoticeWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

/// A test over a whole agent with nothing real around it.
class NoticeTest : public testing::Test {
protected:
    NoticeWorld world;

    /// The lines of the journal that begin so.
    std::vector<std::string> lines(const std::string &beginning) const {
        return world.journal.linesBeginningWith(beginning);
    }

    /// How often a line stands in the journal.
    auto count(const std::string &line) const {
        const auto &all = world.journal.lines();
        return std::count(all.begin(), all.end(), line);
    }
};

inline const QColor accentColor(30, 34, 52);
inline const QColor payloadLogoColor(200, 0, 0);

inline std::string sizeOf(const QByteArray &bytes) {
    return std::to_string(bytes.size()) + " bytes";
}
