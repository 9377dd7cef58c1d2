// What a window costs at the least: the peer that the agent's start and memory are measured against.

#include <QApplication>
#include <QLabel>
#include <QWidget>

int main(int argumentCount, char **arguments) {
    const QApplication application(argumentCount, arguments);
    QWidget window;
    window.resize(460, 320);
    QLabel label(QStringLiteral("A bare window"), &window);
    label.move(24, 24);
    window.show();
    return QApplication::exec();
}
