#include "Controllers/MainStoryboard.h"

#include "Controllers/AutoDisconnectHandlerVC.h"
#include "Controllers/ConcurrentSessionVC.h"
#include "Controllers/MaintenanceModeVC.h"
#include "Controllers/ReAuthHandlerVC.h"
#include "Controllers/ViewController.h"
#include "ui_AutoDisconnectHandlerVC.h"
#include "ui_ConcurrentSessionVC.h"
#include "ui_MaintenanceModeVC.h"
#include "ui_ReAuthHandlerVC.h"
#include "ui_ViewController.h"

namespace {

template <class Controller, class Form>
void addScene(Storyboard &storyboard, const NoticeServices &services, const char *identifier) {
    storyboard.addScene(QString::fromLatin1(identifier), [&services] {
        auto view = std::make_unique<LayerView>();
        Form().setupUi(view.get());
        LayoutConstraint::createFromForm(view.get());
        auto controller = std::make_shared<Controller>(services);
        controller->loadView(std::move(view));
        return controller;
    });
}

} // namespace

Storyboard makeMainStoryboard(const NoticeServices &services) {
    Storyboard storyboard(services.mainBundle, QStringLiteral("Main"));
    addScene<MaintenanceModeVC, Ui::MaintenanceModeVC>(storyboard, services, "MaintenanceModeVC");
    addScene<AutoDisconnectHandlerVC, Ui::AutoDisconnectHandlerVC>(
        storyboard, services, "AutoDisconnectHandlerVC");
    addScene<ReAuthHandlerVC, Ui::ReAuthHandlerVC>(storyboard, services, "ReAuthHandlerVC");
    addScene<ConcurrentSessionVC, Ui::ConcurrentSessionVC>(storyboard, services, "ConcurrentSessionVC");
    addScene<ViewController, Ui::ViewController>(storyboard, services, "ViewController");
    return storyboard;
}
