#pragma once

#include "Platform/Bundle.h"

#include <QColor>
#include <QString>

/// A brand to show the notices in: the bundle's own, or settings and a word for a logo laid over it.
struct Brand {
    QString name;
    bool isOfBundle = true;
    QString vendor;
    QColor header;
    QColor logo;
};

/// The bundle with another brand's settings and logo laid over it.
class BrandBundle final : public Bundle {
public:
    /// Writes the brand's files.
    /// @param bundle  outlives this one
    /// @param folder  an empty folder that stays as long as this bundle
    BrandBundle(const Bundle &bundle, const Brand &brand, const QString &folder);

    std::optional<QString> pathForResource(const QString &name, const QString &type) const override;
    QVariant objectForInfoDictionaryKey(const QString &key) const override;
    QString localizedStringForKey(
        const QString &key, const QString &value, const QString &table) const override;
    QString localization() const override;
    std::unique_ptr<Bundle> bundleWithPath(const QString &path) const override;

private:
    const Bundle &bundle_;
    QString folder_;
};

/// A word as a logo, 32 pixels high at scale 1, as PNG.
QByteArray wordLogo(const QString &word, const QColor &color, int scale);

/// A plain picture of that size, as PNG: what an integrator may send for a logo.
QByteArray plainLogo(int width, int height);
