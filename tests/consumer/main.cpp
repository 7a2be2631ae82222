// A program outside the qtlog tree that logs through the installed library.
#include <logging/logging.h>

#include <QtCore/QCoreApplication>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    logging::Initializer init(QStringList() << QCoreApplication::applicationDirPath() + "/");
    logging::toLog(logging::Info, "consumer", __FILE__, __LINE__, Q_FUNC_INFO) << "linked";
    return 0;
}
