#include "Controllers/PayloadDescription.h"

#include "Platform/DistributedNotificationCenter.h"
#include "Tests/Fakes/Printing.h"

#include <gtest/gtest.h>

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
        { QStringLiteral("true"), "\"true\"" }, // not to be taken for the flag
        { -7, "-7" },
        { qulonglong(18446744073709551615ULL), "18446744073709551615" },
        { QByteArray("\0\xff!", 3), "3 bytes" },
        { QVariant::fromValue(OtherValue { QStringLiteral("as") }), "<as>" },
    };
    for (const auto &row : rows)
        EXPECT_EQ(payloadDescription({ { QStringLiteral("k"), row.value } }),
            QStringLiteral("{\n    k = %1;\n}").arg(QString::fromUtf8(row.text)));
}
