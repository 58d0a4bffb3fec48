// Replays, in the normal build, every input the fuzz targets once failed on
// (fuzz/regressions/<target>/) and their seed corpus (fuzz/corpus/<target>/)
// through the same entry points the libFuzzer executables use. A broken
// invariant aborts the run, exactly as it does under the fuzzer.

#include "../../fuzz/FuzzEntries.h"
#include "TestMain.h"

#include <QDir>
#include <QFile>
#include <QTest>

using Entry = void (*)(const uint8_t*, size_t);
Q_DECLARE_METATYPE(Entry)

class TestFuzzRegressions : public QObject
{
    Q_OBJECT

private slots:
    // One row per file of fuzz/<kind>/<target>/.
    void replay_data()
    {
        QTest::addColumn<Entry>("entry");
        QTest::addColumn<QString>("path");
        const QList<QPair<QString, Entry>> targets { { "parser", QuenvarFuzz::parserInput },
            { "framing", QuenvarFuzz::framingInput }, { "irctext", QuenvarFuzz::irctextInput },
            { "links", QuenvarFuzz::linksInput }, { "inputcommand", QuenvarFuzz::inputCommandInput } };
        for (const auto& [target, entry] : targets) {
            int rows = 0;
            for (const QString kind : { "regressions", "corpus" }) {
                const QDir dir(QStringLiteral(QUENVAR_TEST_SUPPORT_DIR "/../../fuzz/%1/%2").arg(kind, target));
                for (const QString& file : dir.entryList(QDir::Files, QDir::Name)) {
                    QTest::addRow("%s/%s/%s", qPrintable(target), qPrintable(kind), qPrintable(file))
                        << entry << dir.filePath(file);
                    ++rows;
                }
            }
            if (rows == 0)
                QTest::addRow("%s: no inputs", qPrintable(target)) << entry << QString();
        }
    }

    void replay()
    {
        QFETCH(Entry, entry);
        QFETCH(QString, path);
        QVERIFY2(!path.isEmpty(), "no regression or corpus inputs found");
        QFile file(path);
        QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(path));
        const QByteArray bytes = file.readAll();
        entry(reinterpret_cast<const uint8_t*>(bytes.constData()), size_t(bytes.size()));
    }
};

QUENVAR_TEST_MAIN(TestFuzzRegressions)
#include "tst_fuzzregress.moc"
