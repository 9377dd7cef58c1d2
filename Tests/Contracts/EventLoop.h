#pragma once

#include <QCoreApplication>

/// There is a QCoreApplication as long as this is there.
class EventLoop {
public:
    EventLoop()
        : application_(argumentCount_, arguments_) { }

private:
    char name_[5] = "test";
    char *arguments_[2] = { name_, nullptr };
    int argumentCount_ = 1;
    QCoreApplication application_;
};
