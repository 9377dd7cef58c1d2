#include "Support/HeaderBranding.h"

#include "Platform/Views/ImageView.h"
#include "Platform/Views/LayerView.h"
#include "Support/CustomAPPManager.h"
#include "Tests/Platform/DesktopTest.h"
#include "Tests/Platform/PrintQt.h"
#include "Tests/Platform/RawBundle.h"

#include <QBuffer>

namespace {

QByteArray png(const QSize &size) {
    QImage image(size, QImage::Format_ARGB32);
    image.fill(Qt::red);
    QBuffer buffer;
    image.save(&buffer, "PNG");
    return buffer.data();
}

class HeaderBranding : public DesktopTest {
protected:
    HeaderBranding() {
        CustomAPPManager::AppLogo = QStringLiteral("logo");
        CustomAPPManager::globalAppViewBackgroundColor = QStringLiteral("#010203");
        root_.resize(100, 100);
        header_.resize(100, 40);
    }

    void apply() { applyHeaderBranding(bundle_.open(), logo_, header_, root_); }
    static QColor painted(QWidget &view) {
        return view.grab().toImage().pixelColor(view.width() / 2, view.height() / 2);
    }

    RawBundle bundle_;
    ImageView logo_;
    LayerView header_;
    LayerView root_;
};

TEST_F(HeaderBranding, SetsLogoHeaderColourAndWhiteRoot) {
    bundle_.writeResource(QStringLiteral("logo.png"), png({ 60, 20 }));
    apply();
    ASSERT_TRUE(logo_.image());
    EXPECT_EQ(logo_.image()->size(), QSize(60, 20));
    EXPECT_EQ(painted(header_), QColor(1, 2, 3));
    EXPECT_EQ(painted(root_), QColor(Qt::white));
}

TEST_F(HeaderBranding, AMissingLogoLeavesTheViewEmpty) {
    logo_.setImage(Image::withData(png({ 1, 1 })));
    apply();
    EXPECT_FALSE(logo_.image());
}

TEST_F(HeaderBranding, AnEmptyColourIsGray) {
    CustomAPPManager::globalAppViewBackgroundColor.clear();
    CustomAPPManager::AppLogo.clear();
    apply();
    EXPECT_FALSE(logo_.image());
    EXPECT_NEAR(painted(header_).redF(), 0.5, 0.005);
    EXPECT_NEAR(painted(header_).greenF(), 0.5, 0.005);
    EXPECT_NEAR(painted(header_).blueF(), 0.5, 0.005);
}

TEST_F(HeaderBranding, TheNextApplicationTakesTheSettingsOfThen) {
    apply();
    bundle_.writeResource(QStringLiteral("other.png"), png({ 30, 30 }));
    CustomAPPManager::AppLogo = QStringLiteral("other");
    CustomAPPManager::globalAppViewBackgroundColor = QStringLiteral("FFEEDD");
    apply();
    ASSERT_TRUE(logo_.image());
    EXPECT_EQ(logo_.image()->size(), QSize(30, 30));
    EXPECT_EQ(painted(header_), QColor(0xff, 0xee, 0xdd));
}

} // namespace
