// qtlog demo: logs from several modules and worker threads, captures Qt's
// own messages, and picks up edits of its log.conf while it runs.
//
//     qtlog-demo [seconds] [config-dir/]

#include <logging/logging.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDebug>
#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtCore/QThread>
#include <QtCore/QTimer>

#include <atomic>

namespace {

// A worker that reads a simulated sensor and logs what it sees.
class SensorWorker : public QThread
{
public:
    SensorWorker(const QByteArray &sensor, int periodMs)
        : sensor(sensor), periodMs(periodMs), stopRequested(false)
    {
    }

    void requestStop() { stopRequested = true; }

protected:
    void run() override
    {
        QTLOG_INFO("sensor", sensor) << "worker started, period" << periodMs << "ms";
        int sample = 0;
        while (!stopRequested) {
            ++sample;
            const int value = (sample * 37 + periodMs) % 100;
            QTLOG_TRACE("sensor.raw", sensor) << "sample" << sample << "raw value" << value;
            QTLOG_DEBUG("sensor", sensor) << "value" << value;
            if (value > 90)
                QTLOG_WARNING("sensor", sensor) << "value" << value << "above limit\nrecalibrating";
            msleep(periodMs);
        }
        QTLOG_INFO("sensor", sensor) << "worker stopped after" << sample << "samples";
    }

private:
    const QByteArray sensor;
    const int periodMs;
    std::atomic<bool> stopRequested;
};

// Main-thread activity: a network module and Qt's own messages.
class Heartbeat : public QObject
{
    Q_OBJECT

public:
    Heartbeat() : beats(0) {}

public Q_SLOTS:
    void beat()
    {
        ++beats;
        QTLOG_INFO("net") << "heartbeat" << beats;
        QTLOG_TRACE("net", "link") << "carrier up, rtt" << 3 + beats % 4 << "ms";
        if (beats % 3 == 0)
            QTLOG_DEBUG("net", "dns") << "resolved" << "device.local";
        if (beats % 4 == 0)
            qDebug() << "plain qDebug from the main thread, beat" << beats;
        if (beats % 5 == 0)
            qWarning("plain qWarning: link quality %d%%", 100 - beats);
        if (beats % 7 == 0)
            QTLOG_ERROR("storage") << "write retried" << beats / 7 << "times";
    }

private:
    int beats;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);

    const QStringList args = app.arguments();
    bool ok = false;
    const int seconds = args.size() > 1 ? args.at(1).toInt(&ok) : 0;
    const int runSeconds = ok && seconds > 0 ? seconds : 5;
    const QString configDir = args.size() > 2
        ? args.at(2)
        : QCoreApplication::applicationDirPath() + QLatin1Char('/');

    logging::Initializer logging(QStringList() << configDir);
    QTLOG_INFO("demo") << "running for" << runSeconds << "seconds with settings from" << configDir;

    QList<SensorWorker *> workers;
    workers << new SensorWorker("temperature", 400) << new SensorWorker("pressure", 650);
    for (SensorWorker *worker : workers)
        worker->start();

    Heartbeat heartbeat;
    QTimer timer;
    QObject::connect(&timer, SIGNAL(timeout()), &heartbeat, SLOT(beat()));
    timer.start(500);

    QTimer::singleShot(runSeconds * 1000, &app, SLOT(quit()));
    const int result = app.exec();

    timer.stop();
    for (SensorWorker *worker : workers)
        worker->requestStop();
    for (SensorWorker *worker : workers) {
        worker->wait();
        delete worker;
    }
    // Records of the workers' last words were queued for the main thread.
    QCoreApplication::processEvents();
    QTLOG_INFO("demo") << "done";
    return result;
}

#include "main.moc"
