// Replays, in the normal build, every input the fuzz targets once failed on
// (fuzz/regressions/<target>/) and their seed corpus (fuzz/corpus/<target>/)
// through the same entry points the libFuzzer executables use. A broken
// invariant aborts the run, exactly as it does under the fuzzer.

#include "../../fuzz/FuzzEntries.h"
#include "TestMain.h"

#include <QDir>
#include <QFile>
#include <QTest>

namespace {

using Entry = void (*)(const uint8_t*, size_t);

QString fuzzDir()
{
    return QDir::cleanPath(QStringLiteral(QUENVAR_TEST_SUPPORT_DIR "/../../fuzz"));
}

// One row per file of fuzz/<kind>/<target>/.
void addRows(const QString& target)
{
    QTest::addColumn<QString>("path");
    int rows = 0;
    for (const QString& kind : { QStringLiteral("regressions"), QStringLiteral("corpus") }) {
        const QDir dir(fuzzDir() + QLatin1Char('/') + kind + QLatin1Char('/') + target);
        const QStringList files = dir.entryList(QDir::Files, QDir::Name);
        for (const QString& file : files) {
            QTest::newRow(qPrintable(kind + QLatin1Char('/') + file)) << dir.filePath(file);
            ++rows;
        }
    }
    if (rows == 0)
        QTest::newRow("no inputs") << QString();
}

void replay(Entry entry)
{
    QFETCH(QString, path);
    QVERIFY2(!path.isEmpty(), "no regression or corpus inputs found");
    QFile file(path);
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(path));
    const QByteArray bytes = file.readAll();
    entry(reinterpret_cast<const uint8_t*>(bytes.constData()), size_t(bytes.size()));
}

} // namespace

class TestFuzzRegressions : public QObject
{
    Q_OBJECT

private slots:
    void parser_data() { addRows(QStringLiteral("parser")); }
    void parser() { replay(QuenvarFuzz::parserInput); }
    void framing_data() { addRows(QStringLiteral("framing")); }
    void framing() { replay(QuenvarFuzz::framingInput); }
    void irctext_data() { addRows(QStringLiteral("irctext")); }
    void irctext() { replay(QuenvarFuzz::irctextInput); }
    void links_data() { addRows(QStringLiteral("links")); }
    void links() { replay(QuenvarFuzz::linksInput); }
    void inputcommand_data() { addRows(QStringLiteral("inputcommand")); }
    void inputcommand() { replay(QuenvarFuzz::inputCommandInput); }
};

QUENVAR_TEST_MAIN(TestFuzzRegressions)
#include "tst_fuzzregress.moc"
