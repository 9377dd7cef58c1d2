// What every distributed notification centre promises. One suite of behaviours, run over each of them.

#include "Tests/Contracts/NotificationCenterContract.h"
#include "Tests/Platform/PrintQt.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

class NotificationCenter : public testing::TestWithParam<Kind> {
protected:
    /// Notes what it gets.
    DistributedNotificationCenter::Handler noting(std::vector<Notification> &got) {
        return [this, &got](const Notification &notification) {
            EXPECT_FALSE(isCalling_) << "a handler runs within a call of the centre's";
            got.push_back(notification);
        };
    }
    void observe(const void *observer, std::vector<Notification> &got, const QString &name) {
        isCalling_ = true;
        centers_->observing().addObserver(observer, noting(got), name);
        isCalling_ = false;
        centers_->waitUntilObserving();
    }
    void remove(const void *observer, const QString &name) {
        centers_->observing().removeObserver(observer, name);
    }
    void post(
        const QString &name, const QString &object = {}, const std::optional<QVariantMap> &userInfo = {}) {
        isCalling_ = true;
        centers_->post({ name, object, userInfo });
        isCalling_ = false;
    }
    bool waitFor(const std::vector<Notification> &got, std::size_t count) {
        return centers_->waitUntil([&] { return got.size() >= count; });
    }
    /// Waits until everything posted so far has reached whom it was for.
    bool everythingHasArrived() {
        static const QString fence = QStringLiteral("fence");
        std::vector<Notification> got;
        const int observer = 0;
        observe(&observer, got, fence);
        post(fence);
        const bool arrived = waitFor(got, 1);
        remove(&observer, fence);
        return arrived;
    }

    static QVariant arriving(const QVariant &posted) {
        return GetParam().arriving ? GetParam().arriving(posted) : posted;
    }
    static std::vector<std::string> objects(const std::vector<Notification> &got) {
        std::vector<std::string> all;
        for (const auto &each : got)
            all.push_back(each.object.toStdString());
        return all;
    }

    const QString name_ = QStringLiteral("zelvik_socketMessageNotifier");
    const int one_ = 1;
    const int two_ = 2;
    std::vector<Notification> got_;
    std::vector<Notification> gotByOther_;
    bool isCalling_ = false;
    std::unique_ptr<Centers> centers_ = GetParam().make();
};

TEST_P(NotificationCenter, AnObserverGetsWhatIsPostedUnderItsName) {
    observe(&one_, got_, name_);
    post(name_, QStringLiteral("object"), QVariantMap { { QStringLiteral("key"), true } });
    ASSERT_TRUE(waitFor(got_, 1));
    EXPECT_EQ(got_[0].name, name_);
    EXPECT_EQ(got_[0].object, "object");
    EXPECT_EQ(got_[0].userInfo, (QVariantMap { { QStringLiteral("key"), arriving(true) } }));
    EXPECT_TRUE(everythingHasArrived());
    EXPECT_EQ(got_.size(), 1U);
}

TEST_P(NotificationCenter, NoUserInfoIsNoneAndAnEmptyOneIsEmpty) {
    observe(&one_, got_, name_);
    post(name_);
    post(name_, {}, QVariantMap());
    ASSERT_TRUE(waitFor(got_, 2));
    EXPECT_EQ(got_[0].userInfo, std::nullopt);
    EXPECT_EQ(got_[0].object, "");
    EXPECT_EQ(got_[1].userInfo, QVariantMap());
}

TEST_P(NotificationCenter, NamesThatOnlyBeginAlikeAreOthers) {
    observe(&one_, got_, name_);
    for (const auto &other :
        { name_ + u'x', name_.chopped(1), name_ + u'.', name_ + QStringLiteral(".a"), name_ + u' ',
            u' ' + name_, name_.toUpper(), QStringLiteral("_socketMessageNotifier"), QString() })
        post(other, QStringLiteral("wrong"));
    post(name_, QStringLiteral("right"));
    ASSERT_TRUE(waitFor(got_, 1));
    EXPECT_TRUE(everythingHasArrived());
    EXPECT_THAT(objects(got_), testing::ElementsAre("right"));
}

TEST_P(NotificationCenter, TheOrderOfPostingIsKept) {
    constexpr int count = 500;
    observe(&one_, got_, QStringLiteral("a"));
    observe(&one_, got_, QStringLiteral("b"));
    for (int number = 0; number < count; ++number)
        post(number % 3 ? QStringLiteral("a") : QStringLiteral("b"), QString::number(number));
    ASSERT_TRUE(waitFor(got_, count));
    for (int number = 0; number < count; ++number)
        ASSERT_EQ(got_[static_cast<std::size_t>(number)].object, QString::number(number));
}

TEST_P(NotificationCenter, AnObserverThatIsRemovedGetsNothingMore) {
    observe(&one_, got_, name_);
    observe(&two_, gotByOther_, name_);
    post(name_);
    ASSERT_TRUE(everythingHasArrived());
    remove(&one_, name_);
    post(name_);
    ASSERT_TRUE(everythingHasArrived());
    EXPECT_EQ(got_.size(), 1U);
    EXPECT_EQ(gotByOther_.size(), 2U) << "the other one is heard on";
    observe(&one_, got_, name_);
    post(name_);
    ASSERT_TRUE(everythingHasArrived());
    EXPECT_EQ(got_.size(), 2U) << "added again it is heard again";
}

TEST_P(NotificationCenter, WhatIsUnderWayToARemovedObserverIsDropped) {
    observe(&one_, got_, name_);
    post(name_);
    remove(&one_, name_);
    ASSERT_TRUE(everythingHasArrived());
    EXPECT_TRUE(got_.empty());
}

TEST_P(NotificationCenter, AnObserverMayRemoveItselfInItsHandler) {
    int count = 0;
    centers_->observing().addObserver(
        &one_,
        [&](const Notification &) {
            ++count;
            remove(&one_, name_);
        },
        name_);
    observe(&two_, gotByOther_, name_); // waits for both
    post(name_);
    post(name_);
    ASSERT_TRUE(everythingHasArrived());
    EXPECT_EQ(count, 1);
    EXPECT_EQ(gotByOther_.size(), 2U);
}

TEST_P(NotificationCenter, AHandlerMayPost) {
    centers_->observing().addObserver(
        &one_,
        [&](const Notification &) { centers_->observing().postNotificationName(QStringLiteral("answer")); },
        name_);
    observe(&two_, gotByOther_, QStringLiteral("answer"));
    post(name_);
    ASSERT_TRUE(waitFor(gotByOther_, 1));
    EXPECT_EQ(gotByOther_[0].object, "");
    EXPECT_EQ(gotByOther_[0].userInfo, std::nullopt);
}

TEST_P(NotificationCenter, ANameMayHoldAnyCharacters) {
    const QStringList names { QStringLiteral("it's"), QStringLiteral("'"), QStringLiteral("''"),
        QStringLiteral("a','b"), QStringLiteral("a',arg0='b"), QStringLiteral("\\"), QStringLiteral("\\'"),
        QStringLiteral("a,b=c"), QStringLiteral("\"quoted\""), QStringLiteral(" "), QStringLiteral("a b"),
        QStringLiteral("line\nbreak"), QStringLiteral("*"), QStringLiteral(u"é日本"),
        QStringLiteral(u"\U0001f512_socketMessageNotifier"), QString(500, u'x'), QStringLiteral("%s%n{}") };
    std::vector<Notification> got;
    for (const auto &name : names)
        observe(&one_, got, name);
    for (const auto &name : names)
        post(name);
    ASSERT_TRUE(waitFor(got, static_cast<std::size_t>(names.size())));
    ASSERT_TRUE(everythingHasArrived());
    ASSERT_EQ(got.size(), static_cast<std::size_t>(names.size()));
    for (qsizetype index = 0; index < names.size(); ++index)
        EXPECT_EQ(got[static_cast<std::size_t>(index)].name, names[index]);
    for (const auto &name : names)
        remove(&one_, name);
    for (const auto &name : names)
        post(name);
    ASSERT_TRUE(everythingHasArrived());
    EXPECT_EQ(got.size(), static_cast<std::size_t>(names.size())) << "each is removed as it was added";
}

TEST_P(NotificationCenter, UserInfoKeepsItsTypes) {
    const QVariantMap userInfo {
        { QStringLiteral("true"), true },
        { QStringLiteral("false"), false },
        { QStringLiteral("string"), QStringLiteral(u"text é日\U0001f512\n<b>") },
        { QStringLiteral("empty string"), QString(QLatin1String("")) },
        { QStringLiteral("data"), QByteArray("\0\xff\x89PNG", 6) },
        { QStringLiteral("empty data"), QByteArray("") },
        { QStringLiteral("integer"), -5 },
        { QString(QLatin1String("")), QStringLiteral("of the empty key") },
        { QStringLiteral(u"ключ 'key'"), QStringLiteral("of another key") },
    };
    observe(&one_, got_, name_);
    post(name_, {}, userInfo);
    ASSERT_TRUE(waitFor(got_, 1));
    ASSERT_TRUE(got_[0].userInfo);
    EXPECT_EQ(got_[0].userInfo->keys(), userInfo.keys());
    for (auto entry = userInfo.begin(); entry != userInfo.end(); ++entry) {
        const auto value = got_[0].userInfo->value(entry.key());
        const auto expected = arriving(entry.value());
        EXPECT_EQ(value, expected) << entry.key().toStdString();
        EXPECT_EQ(value.metaType().id(), expected.metaType().id()) << entry.key().toStdString();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Over, NotificationCenter, testing::ValuesIn(kinds()), [](const auto &kind) { return kind.param.name; });

} // namespace
