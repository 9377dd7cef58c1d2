// What every bundle promises. One suite of behaviours, run over the folder and over the one that switches
// languages.

#include "Support/AnyLanguageBundle.h"
#include "Tests/Fakes/Printing.h"
#include "Tests/Fakes/TemporaryBundle.h"

#include <gtest/gtest.h>

#include <QDir>

namespace {

/// A bundle whose lookups come from German.
struct BundleKind {
    const char *name;
    bool switchesLanguage; ///< to German, the user's own being French
    bool isPlain; ///< the folder's own bundle
};

class BundleContract : public testing::TestWithParam<BundleKind> {
protected:
    BundleContract() {
        files_.setPreferredLanguages({ GetParam().switchesLanguage ? "fr" : "de" });
        files_.addStrings(QStringLiteral("de"), { { "key", "Wert" } });
        files_.addStrings(QStringLiteral("de"), { { "key", "main" } }, QStringLiteral("Main"));
        files_.addStrings(QStringLiteral("fr"), { { "key", "valeur" }, { "French", "oui" } });
        if (GetParam().switchesLanguage)
            switching_.switchLanguage(QStringLiteral("de"));
    }

    const Bundle &bundle() const {
        return GetParam().isPlain ? static_cast<const Bundle &>(files_.bundle()) : switching_;
    }
    QString text(const QString &key, const QString &value = {}, const QString &table = {}) const {
        return bundle().localizedStringForKey(key, value, table);
    }
    QVariant information(const char *key) const {
        return bundle().objectForInfoDictionaryKey(QString::fromLatin1(key));
    }

    TemporaryBundle files_;
    AnyLanguageBundle switching_ { files_.bundle() };
};

INSTANTIATE_TEST_SUITE_P(Kinds, BundleContract,
    testing::Values(BundleKind { "FileBundle", false, true },
        BundleKind { "AnyLanguageBundle", false, false },
        BundleKind { "AnyLanguageBundleSwitched", true, false }),
    [](const auto &kind) { return std::string(kind.param.name); });

TEST_P(BundleContract, ATextComesFromTheBundlesLanguage) {
    EXPECT_EQ(bundle().localization(), "de");
    EXPECT_EQ(text(QStringLiteral("key")), "Wert");
    EXPECT_EQ(text(QStringLiteral("key"), QStringLiteral("value")), "Wert");
}

TEST_P(BundleContract, AMissingKeyGivesTheValueOrTheKeyAndNoOtherLanguagesText) {
    EXPECT_EQ(text(QStringLiteral("French")), "French");
    EXPECT_EQ(text(QStringLiteral("French"), QStringLiteral("value")), "value");
    EXPECT_EQ(text(QStringLiteral("Key")), "Key");
    EXPECT_EQ(text(QString()), "");
}

TEST_P(BundleContract, ATableIsFoundByItsName) {
    EXPECT_EQ(text(QStringLiteral("key"), {}, QStringLiteral("Main")), "main");
    EXPECT_EQ(text(QStringLiteral("key"), {}, QStringLiteral("Localizable")), "Wert");
    EXPECT_EQ(text(QStringLiteral("key"), {}, QStringLiteral("None")), "key");
    EXPECT_EQ(text(QStringLiteral("key"), {}, QStringLiteral("../fr.lproj/Localizable")), "key");
}

TEST_P(BundleContract, EverythingIsReadAfresh) {
    EXPECT_EQ(text(QStringLiteral("key")), "Wert");
    files_.addStrings(QStringLiteral("de"), { { "key", "edited" } });
    EXPECT_EQ(text(QStringLiteral("key")), "edited");
    EXPECT_FALSE(information("a").isValid());
    files_.setInfo({ { "a", 1 } });
    EXPECT_TRUE(information("a").isValid());
}

TEST_P(BundleContract, AResourceIsAFullPathOrNothing) {
    files_.writeResource(QStringLiteral("logo.png"), "x");
    files_.writeResource(QStringLiteral("noType"), "x");
    const auto path = [this](const char *name, const char *type) {
        return bundle().pathForResource(QString::fromLatin1(name), QString::fromLatin1(type));
    };
    EXPECT_EQ(path("logo", "png"), files_.resource(QStringLiteral("logo.png")));
    EXPECT_EQ(path("noType", ""), files_.resource(QStringLiteral("noType")));
    EXPECT_EQ(path("de", "lproj"), files_.resource(QStringLiteral("de.lproj")));
    EXPECT_EQ(path("logo", "svg"), std::nullopt);
    EXPECT_EQ(path("Logo", "png"), std::nullopt);
}

TEST_P(BundleContract, AValueOfTheInformationIsAnIntegerOrAText) {
    files_.setInfo({ { "number", 30 }, { "text", "30" }, { "flag", true }, { "real", 30.0 } });
    EXPECT_EQ(information("number").metaType().id(), QMetaType::LongLong);
    EXPECT_EQ(information("number").toLongLong(), 30);
    EXPECT_EQ(information("text").metaType().id(), QMetaType::QString);
    for (const char *key : { "flag", "real", "none" })
        EXPECT_FALSE(information(key).isValid()) << key;
}

TEST_P(BundleContract, ALanguageFolderOpensAsABundle) {
    const auto french = bundle().bundleWithPath(files_.resource(QStringLiteral("fr.lproj")));
    ASSERT_TRUE(french);
    EXPECT_EQ(french->localization(), "fr");
    EXPECT_EQ(french->localizedStringForKey(QStringLiteral("key"), {}, {}), "valeur");
}

TEST_P(BundleContract, WhatIsNoFolderOpensAsNothing) {
    files_.writeResource(QStringLiteral("file.lproj"), "x");
    EXPECT_EQ(bundle().bundleWithPath(files_.resource(QStringLiteral("file.lproj"))), nullptr);
    EXPECT_EQ(bundle().bundleWithPath(files_.resource(QStringLiteral("none.lproj"))), nullptr);
    EXPECT_EQ(bundle().bundleWithPath({}), nullptr);
}

TEST_P(BundleContract, WhatIsNoNameNamesNoResource) {
    for (const char *name : { ".png", "..png", "...png", "folder/a.png", "../outside.png" })
        files_.writeResource(QString::fromLatin1(name), "x");
    for (const auto &name : { QString(), QStringLiteral("."), QStringLiteral(".."),
             QStringLiteral("../outside"), QStringLiteral("folder/a"), QStringLiteral("folder/../folder/a"),
             QStringLiteral("/etc/passwd"), QStringLiteral("/"), QStringLiteral(u"folder\0"),
             QStringLiteral(u"\0"), QString(100000, u'a') }) {
        EXPECT_EQ(bundle().pathForResource(name, QStringLiteral("png")), std::nullopt) << name.toStdString();
        EXPECT_EQ(bundle().pathForResource(name, QString()), std::nullopt) << name.toStdString();
    }
}

} // namespace
