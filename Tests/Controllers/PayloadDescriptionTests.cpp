#include "Controllers/PayloadDescription.h"

#include "Tests/Fakes/Printing.h"

#include <gtest/gtest.h>

#include <QDateTime>

TEST(PayloadDescription, NothingIsAnEmptyPairOfBraces) {
    EXPECT_EQ(payloadDescription({}), "{}");
}

TEST(PayloadDescription, EachEntryHasALineInTheKeysOrder) {
    EXPECT_EQ(payloadDescription({ { QStringLiteral("b"), true }, { QStringLiteral("a"), 5 },
                  { QStringLiteral("c"), QStringLiteral("<text> & \"more\"\n") } }),
        "{\n    a = 5;\n    b = true;\n    c = \"<text> & \"more\"\n\";\n}");
}

TEST(PayloadDescription, ValuesAreReadableWhateverTheirType) {
    const struct {
        QVariant value;
        const char *text;
    } rows[] {
        { QString(), "\"\"" },
        { QStringLiteral("true"), "\"true\"" }, // not to be taken for the flag
        { false, "false" },
        { -7, "-7" },
        { qulonglong(18446744073709551615ULL), "18446744073709551615" },
        { 2.5, "2.5" },
        { QByteArray(), "0 bytes" },
        { QByteArray("\0\xff!", 3), "3 bytes" },
        { QDateTime(QDate(2024, 2, 29), QTime(12, 30), Qt::UTC), "2024-02-29T12:30:00.000Z" },
        { QVariantMap { { QStringLiteral("inner"), 1 } }, "{\n    inner = 1;\n}" },
        { QVariantList { 1, QStringLiteral("two"), QByteArray("3") }, "(1, \"two\", 1 bytes)" },
        { QVariantList(), "()" },
    };
    for (const auto &row : rows)
        EXPECT_EQ(payloadDescription({ { QStringLiteral("k"), row.value } }),
            QStringLiteral("{\n    k = %1;\n}").arg(QString::fromUtf8(row.text)));
}
