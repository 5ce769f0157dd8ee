#!/usr/bin/env python3
"""Refuses what not all of Qt 4.8, 5.15 and 6 have in the code of the tool.

Only two of the three are at hand where the tool is built and tested. This list
stands for the compiler of the third; a board with Qt 4.8 would be the first to
find out otherwise.

Usage: shared_api.py SOURCEDIR     checks the tool's folders
       shared_api.py --self-check  checks the check
Exit status 0: nothing refused.
"""
import os
import re
import shutil
import sys
import tempfile

FOLDERS = ["app", "protocol", "hardware", "serial", "flash", "calibration", "compat"]

# Not built with Qt 4; that they suit Qt 5 and Qt 6 their compilers see.
SINCE_QT5 = [
    "calibration/notouchscreen.cpp",
    "calibration/pointercaldriver.cpp", "calibration/pointercaldriver.h",
    "calibration/touchpointer.cpp", "calibration/touchpointer.h",
    "calibration/touchscreen.h",
    "calibration/tstouchscreen.cpp", "calibration/tstouchscreen.h",
]
# Built with Qt 4 for Embedded Linux alone, whose own classes it is about.
ONLY_QT4 = ["calibration/qwspointerdriver.cpp", "calibration/qwspointerdriver.h"]
# Where the versions are told apart.
COMPAT = ["compat/cursor.h", "compat/qtcompat.h", "compat/screen.h",
          "calibration/pointercalibrationdata.h"]

# Each row: pattern, reason, a line that must be refused. Comments and the
# contents of string literals are not looked at.
RULES = [
    # Text
    (r"\bQStringLiteral\b|\bQByteArrayLiteral\b", "since 5.0; QLatin1String",
     'return QStringLiteral("x");'),
    (r'\bu8?"|\bU"|"_(qs|s|ba|L1)\b', "string classes of 4.8 take narrow literals only",
     'setText(u"x"_qs);'),
    (r'\bR"', "moc of 4.8 cannot read raw strings", 'run(R"(x)");'),
    (r"\bQStringView\b|\bQAnyStringView\b|\bQByteArrayView\b|\bQLatin1StringView\b|\bQUtf8StringView\b",
     "since 5.10 or later", "void f(QStringView v);"),
    (r"\basprintf\b|\.sprintf\s*\(", "asprintf since 5.5, sprintf gone in 6; arg()",
     'QString::asprintf("%d", 1);'),
    (r"\bqUtf8Printable\b", "since 5.4; qPrintable", "qUtf8Printable(path)"),
    (r"\bQTextCodec\b|\bsetCodec\s*\(|\bsetEncoding\s*\(",
     "setCodec gone in 6, setEncoding since 6; keep to ASCII", 'stream.setCodec("UTF-8");'),
    (r"\btoAscii\b|\bfromAscii\b", "gone in 5; Latin1", "name.toAscii();"),
    (r"\bUnicodeUTF8\b|\bDefaultCodec\b", "translate() takes an encoding in 4.8 only",
     'translate("a", "b", 0, QCoreApplication::UnicodeUTF8);'),
    (r"\bQt::(SkipEmptyParts|KeepEmptyParts)\b|\bQString::(SkipEmptyParts|KeepEmptyParts)\b",
     "in Qt since 5.14, in QString until 5; drop empty parts yourself",
     "s.split(c, Qt::SkipEmptyParts);"),
    (r"\bQt::endl\b|<<\s*endl\b", "Qt::endl since 5.14, plain endl gone in 6; '\\n' and flush()",
     "stream << Qt::endl;"),
    (r"\bQRegularExpression\w*\b", "since 5.0; QRegExp", "QRegularExpression re;"),
    (r"\.(contains|replace|split|remove|filter|indexOf|lastIndexOf|count|section)\s*\(\s*QRegExp",
     "strings take no QRegExp in 6; call the QRegExp", 'text.remove(QRegExp("x"));'),
    (r"\.chopped\s*\(|\.isUpper\s*\(|\.isLower\s*\(", "since 5.10 or 5.14", "s.chopped(1);"),

    # Logging
    (r"\bqInfo\b|\bqCInfo\b", "since 5.5; qDebug", 'qInfo("x");'),
    (r"\bqC(Debug|Warning|Critical)\b|\bQLoggingCategory\b|\bQ_(DECLARE_)?LOGGING_CATEGORY\b",
     "since 5.2", 'qCDebug(line, "x");'),
    (r"\bqInstallMsgHandler\b|\bqInstallMessageHandler\b|\bQMessageLogContext\b",
     "MsgHandler gone in 5, MessageHandler since 5", "qInstallMessageHandler(0);"),

    # Objects
    (r"\b(connect|disconnect|singleShot|invokeMethod)\s*\([^;]*?&\s*\w+(::\w+)+",
     "connections to functions since 5.0; SIGNAL and SLOT",
     "connect(a, &A::b, c, SLOT(d()));"),
    (r"\b(connect|singleShot|invokeMethod)\s*\([^;]*?(?<![\w\])])\[[^;\]]*\]\s*[({]",
     "connections to lambdas since 5.0; a slot", "connect(a, SIGNAL(b()), [this] { c(); });"),
    (r"\bQMetaObject::Connection\b|\bQSignalBlocker\b|\bQOverload\b|\bqOverload\b",
     "since 5.0, 5.3, 5.7", "QSignalBlocker blocker(this);"),
    (r"\bQMetaMethod::fromSignal\b|\bmethodSignature\b", "since 5.0", "m.methodSignature();"),
    (r"\bQ_ENUM(_NS)?\b|\bQ_FLAG(_NS)?\b|\bQ_NAMESPACE\b", "since 5.5 and 5.8; Q_ENUMS",
     "Q_ENUM(State)"),
    (r"\bQ_DECL_\w+\b|\bQ_NULLPTR\b|\bQ_FALLTHROUGH\b|\bQ_DISABLE_(COPY_)?MOVE\b",
     "since 5; the language says it itself", "void f() Q_DECL_OVERRIDE;"),
    (r"\benum\s+(class|struct)\b", "moc of 4.8 cannot parse it", "enum class State { Up };"),
    (r"\bchrono\b", "since 5.8; milliseconds as int", "std::chrono::milliseconds wait;"),
    (r"\bSIGNAL\s*\(\s*(error|errorOccurred)\s*\(\s*QProcess",
     "the signal's name differs, and 5.15 emits both; MFTOOL_SIGNAL_PROCESS_ERROR",
     "connect(p, SIGNAL(error(QProcess::ProcessError)), SLOT(f()));"),
    (r"\bquit\s*\(|\bSLOT\s*\(\s*quit\b", "closes the windows first in 6; quitApplication()",
     "QCoreApplication::quit();"),

    # Containers and loops
    (r"\bforeach\b|\bQ_FOREACH\b",
     "runs its body once with 4.8 and a recent compiler; range-for over a const container",
     "foreach (int i, list) f(i);"),
    (r"\bQ(StringList|ByteArrayList|List\s*<[^;{}]*>|Vector\s*<[^;{}]*>|Set\s*<[^;{}]*>"
     r"|Map\s*<[^;{}]*>|Hash\s*<[^;{}]*>)\s*\w*\s*(=\s*|\(\s*)?\{\s*[^}\s]",
     "initialiser lists since 5.1; operator<<", 'const QStringList names{"a", "b"};'),
    (r"\bconst(First|Last)\s*\(", "since 5.6; at(0)", "names.constFirst();"),
    (r"\bqAsConst\b|\bas_const\b", "since 5.7, gone in 6; a const variable",
     "for (int i : qAsConst(list))"),
    (r"\bQByteArrayList\b|\bqsizetype\b", "since 5.4 and 5.10; QList<QByteArray>, int",
     "qsizetype n;"),
    (r"\bswapItemsAt\b|\.toSet\s*\(|\.toList\s*\(", "since 5.13; gone in 6", "list.swapItemsAt(0, 1);"),

    # System
    (r"\bqEnvironmentVariable\w*\b|\bqunsetenv\b", "since 5.1 or 5.10; qgetenv, qputenv",
     'qEnvironmentVariable("HOME");'),
    (r"\bQFileInfo::exists\s*\(", "static since 5.2; QFile::exists or an object",
     "QFileInfo::exists(path);"),
    (r"\bremoveRecursively\b", "since 5.0", "dir.removeRecursively();"),
    (r"\bQ(TemporaryDir|SaveFile|LockFile|StandardPaths|StorageInfo|CommandLine\w+|DeadlineTimer"
     r"|RandomGenerator|VersionNumber|OperatingSystemVersion|SysInfo|Json\w+)\b",
     "since 5, or not the same in all", "QSaveFile file;"),

    # Screen and windows
    (r"\bQScreen\b|\bQGuiApplication\b|\bQWindow\b|\bwindowHandle\b|\bprimaryScreen\b",
     "since 5.0, and QScreen is another class in 4.8; compat/screen.h",
     "QGuiApplication::primaryScreen();"),
    (r"\bQDesktopWidget\b|\bdesktop\s*\(\s*\)", "gone in 6; compat/screen.h",
     "QApplication::desktop();"),
    (r"(->|\.)(localPos|windowPos|screenPos|globalPosition|scenePosition)\s*\("
     r"|\b(event|e)(->|\.)position\s*\(",
     "5 has the one, 6 the other; pos()", "event->position();"),
    (r"\bhorizontalAdvance\b|\bfontMetrics\s*\(\s*\)\s*\.width\b",
     "since 5.11; gone in 6", "metrics.horizontalAdvance(text);"),
    (r"\bsetMargin\s*\(", "gone in 6; setContentsMargins", "layout->setMargin(0);"),

    # Headers
    (r"#\s*include\s*<Qt(Widgets|Core5Compat)\b", "no such module in 4.8; name the class alone",
     "#include <QtWidgets/QLabel>"),
    (r"#\s*include\s*[<\"](private/|.*_p\.h)", "private headers change without notice",
     "#include <private/qwidget_p.h>"),
    (r"\bQT_VERSION\b|\bQT_VERSION_CHECK\b|\bQ_WS_QWS\b",
     "differences go into compat/, and moc of 4.8 cannot evaluate the macro",
     "#if QT_VERSION >= QT_VERSION_CHECK(5, 0, 0)"),
]

# Lines that no rule may refuse.
ALLOWED = [
    "connect(m_proto, SIGNAL(flashStart(bool, QString)), SLOT(startFlash(bool, QString)));",
    "QTimer::singleShot(0, m_proto, SLOT(sendReady()));",
    "return (this->*command.handler)(data);",
    "{ExitRequest, &TestProto::exitRequest},",
    "for (const QString &name : names)",
    "QStringList() << QLatin1String(\"-v\") << dir",
    "QStringList paths;",
    "const QList<QByteArray> words = content.split(' ');",
    "int values[10] = {};",
    "~mftool() override;",
    "explicit mftool(QWidget *parent = nullptr, const Board &board = Board());",
    "// QStringLiteral, in a comment",
    "/* qInfo() in",
    "   two lines: foreach */",
    "qDebug(\"In ATE Mode: QScreen foreach\");",
    "quitApplication();",
    "mouse(event->pos());",
    "if (a) { connect(x, SIGNAL(y()), SLOT(z())); } int t = values[0];",
    "connect(m_steps[0], SIGNAL(y()), SLOT(z()));",
    "const char quote = '\"';",
]

# For those headers where the versions are told apart that moc reads, because one with
# a Q_OBJECT includes them.
MOC_RULES = [
    (r"#\s*(el)?if\b.*\bQT_VERSION_CHECK\b",
     "moc of 4.8 cannot evaluate it; the number, 0x050000",
     "#if QT_VERSION < QT_VERSION_CHECK(5, 0, 0)"),
]
MOC_ALLOWED = ["#if QT_VERSION < 0x050000"]

UI_RULES = [
    (r"<enum>\w+::\w+::|<set>\w+::\w+::", "uic of 4.8 writes it as it stands; one scope only",
     "<enum>Qt::Orientation::Vertical</enum>"),
    (r"<iconset\s+theme=", "no icon theme in 4.8's form compiler on a board", '<iconset theme="x"/>'),
    (r"<slot>\w*\[|<widget class=\"(QOpenGLWidget|QQuickWidget)\"", "since 5",
     '<widget class="QQuickWidget" name="x"/>'),
]
UI_ALLOWED = ["<enum>Qt::Vertical</enum>", "<set>Qt::AlignCenter</set>"]

TOKEN = re.compile(
    r"""//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])*'""", re.DOTALL)


def blanked(match):
    text = match.group()
    if text.startswith("/"):
        return re.sub(r"[^\n]", " ", text)
    return text[0] + " " * (len(text) - 2) + text[-1]


def code_only(text):
    """The text without comments and contents of literals, on the same lines."""
    lines = []
    for line in TOKEN.sub(blanked, text).split("\n"):
        lines.append(line)
    # The name of an included file is no literal.
    for number, line in enumerate(text.split("\n")):
        if re.match(r"\s*#\s*include\b", line):
            lines[number] = line
    return "\n".join(lines)


def refusals(text, rules, code):
    """Yields line number and reason."""
    searched = code_only(text) if code else text
    for pattern, reason, _ in rules:
        for match in re.finditer(pattern, searched):
            # Where a pattern runs over several lines, its end names the culprit.
            yield searched.count("\n", 0, match.end()) + 1, reason, match.group().split("\n")[-1]
    for number, line in enumerate(text.split("\n"), 1):
        if not line.isascii():
            yield number, "narrow text is Latin-1 in 4.8 and UTF-8 since; keep to ASCII", line.strip()


def read_by_moc(source):
    """The tool's headers that moc comes across, as paths below source."""
    texts = {}
    for folder in FOLDERS:
        for name in os.listdir(os.path.join(source, folder)):
            if name.endswith(".h"):
                with open(os.path.join(source, folder, name), encoding="utf-8") as file:
                    texts[f"{folder}/{name}"] = file.read()
    met = set()
    ahead = [path for path, text in texts.items() if re.search(r"^\s*Q_OBJECT\b", text, re.M)]
    while ahead:
        path = ahead.pop()
        if path in met:
            continue
        met.add(path)
        ahead += [name for name in re.findall(r'#\s*include\s*"([^"]+)"', texts[path])
                  if name in texts]
    return {path: texts[path] for path in sorted(met)}


def check(source):
    exempt = set(SINCE_QT5 + ONLY_QT4 + COMPAT)
    found = []
    seen = set()
    for folder in FOLDERS:
        for name in sorted(os.listdir(os.path.join(source, folder))):
            path = f"{folder}/{name}"
            seen.add(path)
            if path in exempt or not name.endswith((".h", ".cpp", ".ui")):
                continue
            with open(os.path.join(source, path), encoding="utf-8") as file:
                text = file.read()
            code = not name.endswith(".ui")
            for line, reason, what in refusals(text, RULES if code else UI_RULES, code):
                found.append(f"{path}:{line}: {what.strip()}: {reason}")
    for path, text in read_by_moc(source).items():
        if path in COMPAT:
            found += [f"{path}:{line}: {what.strip()}: {reason}"
                      for line, reason, what in refusals(text, MOC_RULES, True)]
    found += [f"{path}: exempt, but not there" for path in sorted(exempt - seen)]
    return found


def self_check(source):
    faults = []
    for rules, allowed, code in ((RULES, ALLOWED, True), (MOC_RULES, MOC_ALLOWED, True),
                                 (UI_RULES, UI_ALLOWED, False)):
        for pattern, _, example in rules:
            if not re.search(pattern, code_only(example) if code else example):
                faults.append(f"not refused: {example}")
        for line, reason, what in refusals("\n".join(allowed), rules, code):
            faults.append(f"refused: {allowed[line - 1]} ({what}: {reason})")

    # A forbidden line in a file of the tool, and only that, fails the check.
    for path, line in (("hardware/tamper.cpp", 'const QString x = QStringLiteral("x");'),
                       ("app/mftool.h", "Q_ENUM(State)"),
                       ("flash/mfproc.cpp", "connect(m_process,\n &QProcess::finished, this,\n f);"),
                       ("calibration/calibrate.ui", "<enum>Qt::Orientation::Vertical</enum>"),
                       ("calibration/pointercalibrationdata.h",
                        "#if QT_VERSION < QT_VERSION_CHECK(5, 0, 0)\n#endif"),
                       ("serial/linuxport.cpp", 'const char x[] = "\u00fc";')):
        with tempfile.TemporaryDirectory() as copy:
            for folder in FOLDERS:
                shutil.copytree(os.path.join(source, folder), os.path.join(copy, folder))
            before = check(copy)
            with open(os.path.join(copy, path), "a", encoding="utf-8") as file:
                file.write("\n" + line + "\n")
            new = [found for found in check(copy) if found not in before]
            if len(new) != 1 or not new[0].startswith(path + ":"):
                faults.append(f"put into {path}: {line}: {new}")
    return faults


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    source = os.path.join(here, "..", "..")
    if sys.argv[1:] == ["--self-check"]:
        faults = self_check(source)
    elif len(sys.argv) == 2:
        faults = check(sys.argv[1])
    else:
        sys.exit(__doc__)
    for fault in faults:
        print(fault)
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
