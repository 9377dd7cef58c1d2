#include "Platform/Linux/LinuxFonts.h"

#include <QByteArray>

#include <fontconfig/fontconfig.h>

#include <memory>
#include <set>
#include <string>

namespace {

using Pattern = std::unique_ptr<FcPattern, decltype(&FcPatternDestroy)>;

// The font library's name of a language whose letters look otherwise in another one; null for all others.
const char *sharedLettersLanguage(const QLocale &locale) {
    switch (locale.language()) {
    case QLocale::Chinese:
        return locale.script() == QLocale::TraditionalChineseScript ? "zh-tw" : "zh-cn";
    case QLocale::Japanese:
        return "ja";
    case QLocale::Korean:
        return "ko";
    case QLocale::Urdu:
        return "ur";
    default:
        return nullptr;
    }
}

struct FaceProperty {
    const char *name;
    double value;
};

// A notice is set upright, in its family's ordinary width, and from regular to bold.
constexpr FaceProperty unusedFaces[] = {
    { FC_SLANT, FC_SLANT_ITALIC },
    { FC_SLANT, FC_SLANT_OBLIQUE },
    { FC_WIDTH, FC_WIDTH_ULTRACONDENSED },
    { FC_WIDTH, FC_WIDTH_EXTRACONDENSED },
    { FC_WIDTH, FC_WIDTH_CONDENSED },
    { FC_WIDTH, FC_WIDTH_SEMICONDENSED },
    { FC_WEIGHT, FC_WEIGHT_THIN },
    { FC_WEIGHT, FC_WEIGHT_EXTRALIGHT },
    { FC_WEIGHT, FC_WEIGHT_LIGHT },
    { FC_WEIGHT, FC_WEIGHT_MEDIUM },
    { FC_WEIGHT, FC_WEIGHT_EXTRABOLD },
    { FC_WEIGHT, FC_WEIGHT_BLACK },
};

bool isUnused(const FcPattern *face) {
    for (const auto &unused : unusedFaces) {
        double value = 0;
        if (FcPatternGetDouble(face, unused.name, 0, &value) == FcResultMatch && value == unused.value)
            return true;
    }
    return false;
}

std::string familyOf(const FcPattern *face) {
    FcChar8 *family = nullptr;
    if (FcPatternGetString(face, FC_FAMILY, 0, &family) != FcResultMatch)
        return {};
    return reinterpret_cast<const char *>(family);
}

std::set<std::string> familiesOfUnusedFacesOnly(const FcFontSet *faces) {
    std::set<std::string> all;
    std::set<std::string> used;
    for (int index = 0; index < faces->nfont; ++index) {
        const auto *face = faces->fonts[index];
        const auto family = familyOf(face);
        all.insert(family);
        if (!isUnused(face))
            used.insert(family);
    }
    for (const auto &family : used)
        all.erase(family);
    return all;
}

QByteArray rule(const char *property, const QByteArray &value) {
    return QByteArray("<pattern><patelt name=\"") + property + "\">" + value + "</patelt></pattern>";
}

/// Tells the library what to leave out, in its own language: it has no other way.
QByteArray rules(const std::set<std::string> &familiesKept) {
    QByteArray accepted;
    for (const auto &family : familiesKept)
        accepted += rule(
            FC_FAMILY, "<string>" + QString::fromStdString(family).toHtmlEscaped().toUtf8() + "</string>");
    QByteArray rejected;
    for (const auto &unused : unusedFaces)
        rejected += rule(unused.name, "<double>" + QByteArray::number(unused.value) + "</double>");
    return R"(<?xml version="1.0"?><!DOCTYPE fontconfig SYSTEM "fonts.dtd"><fontconfig><selectfont>)"
           "<acceptfont>"
        + accepted + "</acceptfont><rejectfont>" + rejected + "</rejectfont></selectfont></fontconfig>";
}

} // namespace

bool LinuxFonts::load() {
    const std::unique_ptr<FcConfig, decltype(&FcConfigDestroy)> configuration(
        FcInitLoadConfigAndFonts(), &FcConfigDestroy);
    const auto *faces = configuration ? FcConfigGetFonts(configuration.get(), FcSetSystem) : nullptr;
    if (!faces || faces->nfont == 0)
        return false;
    const auto text = rules(familiesOfUnusedFacesOnly(faces));
    if (FcConfigParseAndLoadFromMemory(
            configuration.get(), reinterpret_cast<const FcChar8 *>(text.constData()), FcFalse)
        && FcConfigBuildFonts(configuration.get()))
        FcConfigSetCurrent(configuration.get());
    return true;
}

QString LinuxFonts::familyFor(const QLocale &locale) {
    const auto *language = sharedLettersLanguage(locale);
    if (!language)
        return {};
    const Pattern wanted(FcPatternCreate(), &FcPatternDestroy);
    FcPatternAddString(wanted.get(), FC_FAMILY, reinterpret_cast<const FcChar8 *>("sans-serif"));
    FcPatternAddString(wanted.get(), FC_LANG, reinterpret_cast<const FcChar8 *>(language));
    FcConfigSubstitute(nullptr, wanted.get(), FcMatchPattern);
    FcDefaultSubstitute(wanted.get());
    FcResult result = FcResultNoMatch;
    const Pattern found(FcFontMatch(nullptr, wanted.get(), &result), &FcPatternDestroy);
    FcLangSet *languages = nullptr;
    if (!found || FcPatternGetLangSet(found.get(), FC_LANG, 0, &languages) != FcResultMatch
        || FcLangSetHasLang(languages, reinterpret_cast<const FcChar8 *>(language)) == FcLangDifferentLang)
        return {};
    return QString::fromStdString(familyOf(found.get()));
}
