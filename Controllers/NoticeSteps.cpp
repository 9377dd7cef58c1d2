#include "Controllers/NoticeSteps.h"

#include "Contract/Brand.h"
#include "Controllers/NoticeServices.h"
#include "Platform/Application.h"
#include "Platform/Bundle.h"
#include "Platform/NoticeController.h"
#include "Platform/NoticeWindow.h"
#include "Platform/RunLoop.h"
#include "Platform/Views/ImageView.h"
#include "Platform/Views/LayerView.h"
#include "Platform/Views/PushButton.h"
#include "Support/CustomAPPManager.h"
#include "Support/HeaderBranding.h"
#include "Support/Logger.h"

namespace {

constexpr std::chrono::milliseconds terminationDelay(1000);
constexpr double buttonCornerRadius = 3.0;

} // namespace

void setWindowAlpha(NoticeController &controller, double alpha) {
    if (auto *window = controller.window())
        window->setAlphaValue(alpha);
}

void setWindowAlphaFromPayload(NoticeController &controller) {
    setWindowAlpha(controller, CustomAPPManager::flag(CustomAPPManager::WebSocketType) ? 0.0 : 1.0);
}

QString localized(const Bundle &bundle, const char *key) {
    return bundle.localizedStringForKey(QString::fromLatin1(key), {}, {});
}

LayerView &rootView(NoticeController &controller) {
    auto *view = qobject_cast<LayerView *>(controller.view());
    if (!view)
        fatalStop(
            QStringLiteral("%1: the root view has no layer").arg(QLatin1String(controller.className())));
    return *view;
}

void setLayer(LayerView &view, const QColor &color) {
    view.setWantsLayer(true);
    view.setLayerBackgroundColor(color);
}

void brandHeader(NoticeController &controller, const Bundle &bundle,
    const Outlet<ImageView> &headerLogoImageView, const Outlet<LayerView> &headerView) {
    // One after the other: of several outlets that are not connected the first is named.
    auto &logo = *headerLogoImageView;
    auto &header = *headerView;
    applyHeaderBranding(bundle, logo, header, rootView(controller));
}

void styleOkButton(PushButton &button) {
    button.setWantsLayer(true);
    button.setCornerRadius(buttonCornerRadius);
    button.setLayerBackgroundColor(CustomAPPManager::noticeAccentColor());
}

void styleWindow(NoticeController &controller, const QColor &background) {
    auto *window = controller.window();
    if (!window)
        return;
    window->setTitlebarAppearsTransparent(true);
    window->setBackgroundColor(background);
}

QColor vendorWindowBackground() {
    const bool isBlack = CustomAPPManager::Vendor == QLatin1String(Contract::Brand::blackVendor.data());
    return isBlack ? QColor(0, 0, 0) : QColor(30, 34, 52);
}

void setLogoFromPayload(
    const Outlet<ImageView> &headerLogoImageView, const LogSource &logSource, const char *function) {
    const auto bytes = CustomAPPManager::data(CustomAPPManager::HeaderLogoImage);
    if (!bytes)
        return;
    logSource.info(function,
        QStringLiteral("Setting Logo from Zelvik Sase Client ") + QString::number(bytes->size())
            + QStringLiteral(" bytes"));
    headerLogoImageView->setImage(Image::withData(*bytes));
}

void terminateAfterDelay(NoticeController &controller, const NoticeServices &services) {
    auto &application = services.application;
    application.endIsSettled();
    services.runLoop.asyncAfter(terminationDelay,
        [self = controller.shared_from_this(), &application] { application.terminate(self.get()); });
}

void closeAndTerminate(NoticeController &controller, Application &application) {
    setWindowAlpha(controller, 0.0);
    application.terminate(&controller);
}
