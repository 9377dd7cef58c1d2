#pragma once

#include "Platform/Application.h"
#include "Platform/Views/LayerView.h"

#include <QPointer>
#include <QVariant>

#include <memory>

class NoticeWindow;

/// The base of a notice's controller: a view loaded from a form, its outlets, and the view's life cycle.
/// Held by shared pointers: the window holds the controller whose view it shows, and a running timer holds
/// the controller it ticks for. Main thread only.
class NoticeController : public Responder, public std::enable_shared_from_this<NoticeController> {
public:
    /// @param className  as it stands in the line of a fatal stop
    explicit NoticeController(const char *className);
    ~NoticeController() override;
    NoticeController(const NoticeController &) = delete;
    NoticeController &operator=(const NoticeController &) = delete;

    /// Takes the view, connects its button's action, and calls `viewDidLoad()`. Called once, by the
    /// storyboard.
    void loadView(std::unique_ptr<LayerView> view);

    /// The root view, owned by the controller; null before it is loaded.
    LayerView *view() const { return view_; }

    /// The window that the view is in; null while it is in none.
    NoticeWindow *window() const { return window_; }

    /// Skipped while the view is in no window.
    void setWindowAlpha(double alpha);

    virtual void viewDidLoad() { }
    virtual void viewWillAppear() { }

    /// Called by the window when the view has left it. Empties the view: a controller that a countdown keeps
    /// alive does not keep its message's images and texts.
    virtual void viewDidDisappear();

    QVariant representedObject() const { return representedObject_; }
    void setRepresentedObject(const QVariant &object) { representedObject_ = object; }

    const char *className() const { return className_; }

    /// Stops the process: the code touched an outlet that no object of the form is connected to.
    [[noreturn]] void stopAtOutlet(const char *name) const;

protected:
    /// The action of the form's button.
    virtual void buttonClicked() { }

private:
    friend class NoticeWindow;

    const char *className_;
    QPointer<LayerView> view_;
    NoticeWindow *window_ = nullptr;
    QVariant representedObject_;
};

/// A weak reference to an object of the controller's form, by the object's name. Touching one that is not
/// there stops the process with one line.
template <class Object>
class Outlet final {
public:
    /// @param owner  outlives the outlet
    Outlet(const NoticeController &owner, const char *name)
        : owner_(owner)
        , name_(name) { }
    Outlet(const Outlet &) = delete;
    Outlet &operator=(const Outlet &) = delete;

    Object *operator->() const { return get(); }
    Object &operator*() const { return *get(); }
    Object *get() const {
        if (!object_ && owner_.view())
            object_ = owner_.view()->template findChild<Object *>(QString::fromLatin1(name_));
        if (!object_)
            owner_.stopAtOutlet(name_);
        return object_;
    }

private:
    const NoticeController &owner_;
    const char *name_;
    mutable QPointer<Object> object_;
};
