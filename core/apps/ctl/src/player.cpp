#include "player.h"

#include <QString>
#include <QVariant>

#include "names.h"

namespace ctl {

namespace {

Method engine(const char* name) {
    return {kPlayer, kRoot, kPlayer, QString::fromLatin1(name)};
}

/// Without an interface: the logger has one that is derived from the names of program and class.
Method logger(const char* name) {
    return {kPlayer, kLogger, QString(), QString::fromLatin1(name)};
}

}  // namespace

Player::Player(Bus& bus) : bus_(bus) {}

bool Player::play(int playlist) const {
    return bus_.ask<bool>(engine("play_playlist"), {playlist});
}

bool Player::pause(int playlist) const {
    return bus_.ask<bool>(engine("pause_playlist"), {playlist});
}

void Player::stop(int playlist) const {
    bus_.call(engine("stop_playlist"), {playlist});
}

void Player::stop_all() const {
    bus_.call(engine("stop"));
}

void Player::set_brightness(int playlist, int percent) const {
    bus_.call(engine("set_brightness"), {playlist, percent});
}

void Player::set_speed_boost(int playlist, int percent) const {
    bus_.call(engine("set_speed_boost"), {playlist, percent});
}

void Player::set_unicast(bool enabled) const {
    bus_.call(engine("set_unicast_enabled"), {enabled});
}

bool Player::init_zones(const std::vector<Zone>& zones) const {
    return bus_.ask<bool>(engine("init_zones"), {QVariant::fromValue(zones)});
}

bool Player::add_zone(const Zone& zone) const {
    return bus_.ask<bool>(engine("add_zone"), {QVariant::fromValue(zone)});
}

bool Player::update_zone(const Zone& zone) const {
    return bus_.ask<bool>(engine("update_zone"), {QVariant::fromValue(zone)});
}

bool Player::remove_zone(int zone) const {
    return bus_.ask<bool>(engine("remove_zone"), {zone});
}

bool Player::remove_all_zones() const {
    return bus_.ask<bool>(engine("remove_all_zones"));
}

int Player::log_level() const {
    return bus_.ask<int>(logger("getLevel"));
}

void Player::set_log_level(int level) const {
    bus_.call(logger("setLevel"), {level});
}

int Player::process() const {
    return bus_.process_of(kPlayer);
}

}  // namespace ctl
