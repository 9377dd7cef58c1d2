#include "Controllers/ConcurrentSessionVC.h"

#include "Support/CustomAPPManager.h"
#include "Tests/Controllers/NoticeTest.h"

namespace {

constexpr auto updateLabel = "[Controllers/ConcurrentSessionVC updateLabel()] ";

class ConcurrentSessionVCTest : public NoticeTest {
protected:
    std::shared_ptr<ConcurrentSessionVC> appear(const QVariantMap &message = concurrentSessionMessage()) {
        return world.appear<ConcurrentSessionVC>("ConcurrentSessionVC", message);
    }

    static std::string debugLine(const QString &xml) {
        return std::string("debug ") + updateLabel + "Parsing websocket response: " + xml.toStdString();
    }
};

} // namespace

TEST_F(ConcurrentSessionVCTest, TextThatIsNoXmlIsLoggedAsReceivedAndShownAsEmptyTexts) {
    for (const char *text : { "no XML at all", "", "<a><b></a>" }) {
        const auto controller = appear(concurrentSessionMessage().withResponse(QString::fromLatin1(text)));
        EXPECT_EQ(controller->headerTextLabel->stringValue(), " by ");
        EXPECT_EQ(controller->textMessageLabel->stringValue(), "");
        EXPECT_EQ(world.window.alphaValue(), 1.0);
        EXPECT_EQ(count(debugLine(QString::fromLatin1(text))), 1);
        EXPECT_THAT(lines("error"), IsEmpty());
        EXPECT_THAT(world.application.terminations(), IsEmpty());
    }
}

TEST_F(ConcurrentSessionVCTest, NoMessage_IsAnErrorAndTheWindowStaysInvisible) {
    const QVariant values[] { QVariant(), 5, true, QByteArray("<a/>"), QVariantList() };
    for (const auto &value : values) {
        auto message = emptyMessage().with("WebSocketAdminDisconnect", true).withLogo(logoBytes(Qt::red));
        if (value.isValid())
            message.with("webSocketResponse", value);
        const auto controller = appear(message);
        // The style is still applied; the logo and the texts are not touched.
        EXPECT_THAT(world.journal.lines(),
            ElementsAre("window content ConcurrentSessionVC", "window alpha 1.0",
                std::string("error ") + updateLabel + "Unable to receive Response from Zelvik Sase Client...",
                "window alpha 0.0", "window title bar transparent", "window background #ff1e2234"));
        EXPECT_EQ(controller->headerTextLabel->stringValue(), "");
        EXPECT_EQ(controller->textMessageLabel->stringValue(), "");
        EXPECT_EQ(logoColor(*controller->headerLogoImageView), std::nullopt);
        EXPECT_EQ(controller->okButton->cornerRadius(), 3.0);
    }
    EXPECT_THAT(world.application.terminations(), IsEmpty());
}
