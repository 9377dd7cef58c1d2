#include "Platform/macOS/FoundationValues.h"
#include "Tests/Platform/PrintQt.h"

#include <gtest/gtest.h>

using namespace FoundationValues;

namespace {

class FoundationValuesTest : public testing::Test {
protected:
    ~FoundationValuesTest() override { [pool_ drain]; }

    static QVariant valueOf(id object) {
        return mapOf([NSDictionary dictionaryWithObject:object forKey:@"key"]).value(QStringLiteral("key"));
    }
    static void expect(id object, const QVariant &value) {
        const auto read = valueOf(object);
        EXPECT_EQ(read, value);
        EXPECT_EQ(read.metaType().id(), value.metaType().id());
    }

private:
    NSAutoreleasePool *pool_ = [[NSAutoreleasePool alloc] init];
};

TEST_F(FoundationValuesTest, OnlyABooleanIsABoolean) {
    expect([NSNumber numberWithBool:YES], true);
    expect([NSNumber numberWithBool:NO], false);
    // Of the same type, by their own account, as a boolean.
    expect([NSNumber numberWithChar:1], QVariant::fromValue<qlonglong>(1));
    expect([NSNumber numberWithUnsignedChar:1], QVariant::fromValue<qlonglong>(1));
    expect([NSNumber numberWithInt:1], QVariant::fromValue<qlonglong>(1));
    expect([NSNumber numberWithInt:0], QVariant::fromValue<qlonglong>(0));
    expect([NSNumber numberWithDouble:1], 1.0);
    expect(@"true", QStringLiteral("true"));
}

TEST_F(FoundationValuesTest, TextsKeepEveryUnit) {
    for (const auto &text : { QString(QLatin1String("")), QStringLiteral("plain"),
             QStringLiteral(u"é日\U0001f512"), QString(QChar(u'\0')) + u'x', QString(100'000, u'x') }) {
        EXPECT_EQ(textOf(stringOf(text)), text);
        expect(stringOf(text), text);
    }
    expect([NSMutableString stringWithString:@"changing"], QStringLiteral("changing"));
    EXPECT_EQ(textOf(nil), "");
    EXPECT_EQ(textOf(stringOf(QChar(0xd83d) + QStringLiteral("x"))), "?x");
}

TEST_F(FoundationValuesTest, AnotherClassIsKeptForTheLogAlone) {
    for (id object in [NSArray arrayWithObjects:[NSNull null], [NSDate date], [NSArray array],
                               [NSDictionary dictionary], nil]) {
        const auto value = valueOf(object);
        EXPECT_EQ(value.metaType(), QMetaType::fromType<OtherValue>());
        EXPECT_EQ(value.value<OtherValue>().typeName, textOf(NSStringFromClass([object class])));
    }
}

TEST_F(FoundationValuesTest, AKeyThatIsNoTextIsLeftOut) {
    EXPECT_TRUE(mapOf([NSDictionary dictionaryWithObject:@"no" forKey:[NSNumber numberWithInt:1]]).isEmpty());
    EXPECT_TRUE(mapOf(nil).isEmpty());
}

} // namespace
