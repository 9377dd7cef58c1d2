#pragma once

#include <QString>

#include <functional>
#include <map>
#include <memory>

class Bundle;
class NoticeController;

/// A set of scenes: from an identifier to a controller with its view. Main thread only.
class Storyboard {
public:
    using Scene = std::function<std::shared_ptr<NoticeController>()>;

    /// @param bundle  where the texts of a scene are looked up; outlives the storyboard
    /// @param name    also the name of the string table of its texts
    Storyboard(const Bundle &bundle, QString name);

    void addScene(const QString &identifier, Scene scene);

    /// A new controller; its view is loaded, and the view's texts are those of the language in force. An
    /// unknown identifier stops the process.
    std::shared_ptr<NoticeController> instantiateControllerWithIdentifier(const QString &identifier) const;

private:
    void translate(const NoticeController &controller) const;

    const Bundle &bundle_;
    QString name_;
    std::map<QString, Scene> scenes_;
};
