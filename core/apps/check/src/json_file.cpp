#include "json_file.h"

#include <QByteArray>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonParseError>

namespace datacheck {

std::variant<QJsonArray, JsonProblem> read_json_array(const std::string& path) {
    const QString name = QFile::decodeName(path.c_str());
    QFile file(name);
    // A FIFO would keep the program waiting.
    if (QFileInfo::exists(name) && !QFileInfo(name).isFile()) {
        return JsonProblem{JsonProblem::Kind::Unreadable, "it is no regular file"};
    }
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        return JsonProblem{JsonProblem::Kind::Unreadable, file.errorString().toStdString()};
    }
    const QByteArray content = file.readAll();
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(content, &error);
    if (!document.isArray() && !document.isObject()) {
        const QByteArray before = content.left(error.offset);
        return JsonProblem{JsonProblem::Kind::Broken, error.errorString().toStdString(),
                           static_cast<int>(before.count('\n')) + 1,
                           static_cast<int>(before.size() - (before.lastIndexOf('\n') + 1)) + 1};
    }
    if (!document.isArray()) {
        return JsonProblem{JsonProblem::Kind::NoArray, "the top level must be an array, and is an object"};
    }
    return document.array();
}

std::string problem_text(const std::string& path, const JsonProblem& problem) {
    std::string place = path;
    if (problem.line != 0) {
        place += ":" + std::to_string(problem.line) + ":" + std::to_string(problem.column);
    }
    return place + ": " + problem.reason;
}

}  // namespace datacheck
