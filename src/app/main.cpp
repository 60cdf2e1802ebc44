#include "app/startup.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    return Startup::run(application);
}
