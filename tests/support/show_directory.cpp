#include "support/show_directory.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <QJsonDocument>

namespace {

/// An effect that keeps its recording's own timing.
constexpr double kOwnTiming = -1;

std::string to_text(const QJsonArray& array) {
    return QJsonDocument(array).toJson().toStdString();
}

}  // namespace

ShowEffect::ShowEffect(const std::string& path) {
    fields_[QLatin1String("path")] = QString::fromStdString(path);
    fields_[QLatin1String("fps")] = kOwnTiming;
}

ShowEffect& ShowEffect::fps(double frames_per_second) {
    fields_[QLatin1String("fps")] = frames_per_second;
    return *this;
}

ShowEffect& ShowEffect::ppf(double packets_per_frame) {
    fields_[QLatin1String("ppf")] = packets_per_frame;
    return *this;
}

ShowEffect& ShowEffect::sort(double key) {
    fields_[QLatin1String("sort")] = key;
    return *this;
}

ShowEffect& ShowEffect::name(const std::string& text) {
    fields_[QLatin1String("name")] = QString::fromStdString(text);
    return *this;
}

ShowEffect& ShowEffect::output(const std::string& text) {
    outputs_.append(QString::fromStdString(text));
    return *this;
}

ShowEffect& ShowEffect::zone(int universe, int zone_id) {
    universes_.append(QJsonObject{{QLatin1String("id"), universe}, {QLatin1String("zone"), zone_id}});
    return *this;
}

QJsonObject ShowEffect::json() const {
    QJsonObject object = fields_;
    object[QLatin1String("outputs")] = outputs_;
    object[QLatin1String("universes")] = universes_;
    return object;
}

ShowPlaylist::ShowPlaylist(int id) : id_(id) {
    desc_[QLatin1String("Id")] = id;
}

ShowPlaylist& ShowPlaylist::loop(bool on) {
    desc_[QLatin1String("Loop")] = on;
    return *this;
}

ShowPlaylist& ShowPlaylist::brightness(double percent) {
    desc_[QLatin1String("Brightness")] = percent;
    return *this;
}

ShowPlaylist& ShowPlaylist::speed_boost(double percent) {
    desc_[QLatin1String("SpeedBoost")] = percent;
    return *this;
}

ShowPlaylist& ShowPlaylist::effect(const ShowEffect& effect) {
    effects_.append(effect.json());
    return *this;
}

ShowDirectory::ShowDirectory() {
    if (!directory_.isValid()) {
        throw std::runtime_error("no temporary directory: " + directory_.errorString().toStdString());
    }
}

ShowDirectory& ShowDirectory::playlist(const ShowPlaylist& playlist) {
    descs_.append(playlist.desc());
    file(kDescriptionPath, to_text(descs_));
    return file("playlists/" + std::to_string(playlist.id()) + ".json", to_text(playlist.effects()));
}

ShowDirectory& ShowDirectory::recording(const std::string& path, const std::vector<std::uint8_t>& bytes) {
    return file(path, std::string(bytes.begin(), bytes.end()));
}

ShowDirectory& ShowDirectory::file(const std::string& path, std::string_view content) {
    const std::string full = this->path(path);
    std::filesystem::create_directories(std::filesystem::path(full).parent_path());
    std::ofstream out(full, std::ios::binary);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    out.close();
    if (out.fail()) {
        throw std::runtime_error("cannot write " + full);
    }
    return *this;
}

std::string ShowDirectory::path(const std::string& relative) const {
    return directory_.path().toStdString() + "/" + relative;
}
