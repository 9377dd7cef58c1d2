#include "Platform/Storyboard.h"

#include "Platform/Bundle.h"
#include "Platform/FatalStop.h"
#include "Platform/NoticeController.h"
#include "Platform/NoticeWindow.h"
#include "Platform/Views/ImageView.h"
#include "Platform/Views/TextField.h"

#include <QAbstractButton>
#include <QLocale>

#include <utility>

namespace {

// A text that is filled in by the controller, or that is fixed in English, is marked in its form.
bool isTranslated(const QWidget *view) {
    return !view->property("untranslated").toBool();
}

} // namespace

Storyboard::Storyboard(const Bundle &bundle, QString name)
    : bundle_(bundle)
    , name_(std::move(name)) { }

void Storyboard::addScene(const QString &identifier, Scene scene) {
    scenes_.insert_or_assign(identifier, std::move(scene));
}

std::shared_ptr<NoticeController> Storyboard::instantiateControllerWithIdentifier(
    const QString &identifier) const {
    const auto scene = scenes_.find(identifier);
    if (scene == scenes_.end())
        fatalStop(QStringLiteral("the storyboard \"%1\" has no scene \"%2\"").arg(name_, identifier));
    auto controller = scene->second();
    translate(*controller);
    return controller;
}

void Storyboard::translate(const NoticeController &controller) const {
    // The message's language decides which way the notice runs and what its letters look like.
    const QLocale locale(bundle_.localization());
    controller.view()->setLocale(locale);
    controller.view()->setLayoutDirection(locale.textDirection());
    const auto translated
        = [this](const QString &text) { return bundle_.localizedStringForKey(text, text, name_); };
    // What the window is called where the notice has no heading.
    controller.view()->setWindowTitle(translated(QStringLiteral("Notice")));
    controller.view()->setProperty(closeButtonNameProperty, translated(QStringLiteral("Close")));
    const auto labels = controller.view()->findChildren<TextField *>();
    for (auto *label : labels) {
        if (isTranslated(label) && !label->stringValue().isEmpty())
            label->setStringValue(translated(label->stringValue()));
    }
    const auto buttons = controller.view()->findChildren<QAbstractButton *>();
    for (auto *button : buttons) {
        if (isTranslated(button) && !button->text().isEmpty())
            button->setText(translated(button->text()));
    }
    const auto imageViews = controller.view()->findChildren<ImageView *>();
    for (auto *imageView : imageViews) {
        const auto imageName = imageView->parentWidget()->property("imageName").toString();
        if (!imageName.isEmpty())
            imageView->setImage(Image::named(bundle_, imageName));
    }
}
