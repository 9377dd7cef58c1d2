#pragma once

#include "Platform/NoticeWindow.h"
#include "Tests/Fakes/Journal.h"

#include <QWidget>

/// A window that writes every call into the journal, as "window alpha 1.0". The content view gets a place of
/// a notice's width, so that its labels have their frames.
class FakeNoticeWindow final : public NoticeWindow {
public:
    /// @param journal  outlives the window
    /// @param name     what its lines begin with
    explicit FakeNoticeWindow(Journal &journal, QString name = QStringLiteral("window"));
    ~FakeNoticeWindow() override;

    void setAlphaValue(double alpha) override;
    double alphaValue() const override { return alpha_; }
    void setLevel(int level) override;
    void setTitlebarAppearsTransparent(bool transparent) override;
    void setBackgroundColor(const QColor &color) override;
    void makeKeyAndOrderFront() override;
    void invalidateCursorRectsForView(QWidget *view) override;

    /// The class of the content view controller; empty when there is none.
    std::string content() const;

protected:
    void replaceContentView(QWidget *oldView, QWidget *newView) override;

private:
    void add(const QString &call);

    Journal &journal_;
    QString name_;
    QWidget host_;
    double alpha_ = 0;
};
