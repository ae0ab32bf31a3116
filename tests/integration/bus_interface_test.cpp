// What the service offers on the bus: methods, arguments, signal, answers to wrong calls.

#include <QXmlStreamReader>

#include "service_test.h"

using namespace integration;
using testing::ElementsAre;

namespace {

using Texts = std::vector<std::string>;

/// The members of one interface in the order of the introspection, as "method name(in id:i, out :b)".
Texts members(const QString& xml, const QString& interface) {
    Texts result;
    QXmlStreamReader reader(xml);
    QString current;
    while (!reader.atEnd()) {
        reader.readNext();
        if (!reader.isStartElement()) {
            continue;
        }
        const auto attribute = [&reader](const char* name) {
            return reader.attributes().value(QLatin1String(name)).toString().toStdString();
        };
        if (reader.name() == QLatin1String("interface")) {
            current = QString::fromStdString(attribute("name"));
        } else if (current == interface && reader.name() == QLatin1String("arg")) {
            std::string& member = result.back();
            member.insert(member.size() - 1, (member.ends_with("()") ? "" : ", ") + attribute("direction") +
                                                 " " + attribute("name") + ":" + attribute("type"));
        } else if (current == interface && reader.name() != QLatin1String("annotation")) {
            result.push_back(reader.name().toString().toStdString() + " " + attribute("name") + "()");
        }
    }
    EXPECT_FALSE(reader.hasError()) << reader.errorString().toStdString();
    return result;
}

/// The interfaces that an object has of its own.
Texts own_interfaces(const QString& xml) {
    Texts result;
    QXmlStreamReader reader(xml);
    while (!reader.atEnd()) {
        reader.readNext();
        const std::string name = reader.attributes().value(QLatin1String("name")).toString().toStdString();
        if (reader.isStartElement() && reader.name() == QLatin1String("interface") &&
            !name.starts_with("org.freedesktop.DBus.")) {
            result.push_back(name);
        }
    }
    return result;
}

class BusInterfaceTest : public ServiceTest {
protected:
    QString introspection(const char* path) {
        const QDBusMessage reply =
            controller().call(QLatin1String(path), QStringLiteral("org.freedesktop.DBus.Introspectable"),
                              QStringLiteral("Introspect"));
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage);
        return reply.arguments().value(0).toString();
    }

    std::string error_of(const char* method, const QList<QVariant>& arguments) {
        return controller().call_engine(QLatin1String(method), arguments).errorName().toStdString();
    }
};

constexpr char kUnknownMethod[] = "org.freedesktop.DBus.Error.UnknownMethod";

}  // namespace

TEST_F(BusInterfaceTest, TheEngineOffersExactlyItsTwelveMethodsAndItsSignal) {
    start();
    const QString xml = introspection("/");
    EXPECT_THAT(own_interfaces(xml), ElementsAre("com.torvexserver.Cuewright"));
    Texts methods;
    Texts signal;
    for (const std::string& member : members(xml, QStringLiteral("com.torvexserver.Cuewright"))) {
        (member.starts_with("signal") ? signal : methods).push_back(member);
    }
    EXPECT_THAT(
        methods,
        ElementsAre("method stop()", "method set_unicast_enabled(in enabled:b)",
                    "method set_brightness(in playlist_id:i, in brightness:i)",
                    "method set_speed_boost(in playlist_id:i, in speed_boost:i)",
                    "method play_playlist(out :b, in playlist_id:i)",
                    "method pause_playlist(out :b, in playlist_id:i)",
                    "method stop_playlist(in playlist_id:i)", "method init_zones(out :b, in zones:a(iiai))",
                    "method add_zone(out :b, in zone:(iiai))", "method update_zone(out :b, in zone:(iiai))",
                    "method remove_zone(out :b, in id:i)", "method remove_all_zones(out :b)"));
    // A signal's argument needs no direction.
    ASSERT_EQ(signal.size(), 1u);
    EXPECT_THAT(signal[0], testing::AnyOf("signal OnPlaylistStopped( playlist_id:i)",
                                          "signal OnPlaylistStopped(out playlist_id:i)"));
}

TEST_F(BusInterfaceTest, NodeUpdatesAreNotOfferedAsAMethod) {
    start();
    EXPECT_FALSE(introspection("/").contains(QLatin1String("update_artnet_node_map")));
    EXPECT_EQ(error_of("update_artnet_node_map", {QStringLiteral("1:1:192.0.2.1:6454")}), kUnknownMethod);
}

TEST_F(BusInterfaceTest, NothingElseOfTheEngineCanBeCalled) {
    start();
    for (const char* const method :
         {"set_root_dir", "set_playlist_desc_path", "load_playlist", "deleteLater"}) {
        EXPECT_EQ(error_of(method, {}), kUnknownMethod) << method;
        EXPECT_EQ(error_of(method, {QStringLiteral("x")}), kUnknownMethod) << method;
    }
}

TEST_F(BusInterfaceTest, TheLoggerOffersLevelAndContextUnderTheInterfaceThatQtDerives) {
    start();
    const QString xml = introspection("/logger");
    const Texts interfaces = own_interfaces(xml);
    ASSERT_EQ(interfaces.size(), 1u);
    EXPECT_THAT(interfaces[0], testing::EndsWith(".ondra.Logger"));
    EXPECT_THAT(members(xml, QString::fromStdString(interfaces[0])),
                ElementsAre("method setLevel(in level:i)", "method getLevel(out :i)",
                            "method useContext(in use_context:b)"));
    EXPECT_EQ(controller().call_logger(QStringLiteral("setOutput"), {0}).errorName().toStdString(),
              kUnknownMethod);
}

TEST_F(BusInterfaceTest, WrongArgumentsAreAnsweredByTheStandardError) {
    start();
    const QVariant text = QStringLiteral("1");
    EXPECT_EQ(error_of("play_playlist", {text}), kUnknownMethod);
    EXPECT_EQ(error_of("play_playlist", {1u}), kUnknownMethod);
    EXPECT_EQ(error_of("play_playlist", {}), kUnknownMethod);
    EXPECT_EQ(error_of("set_unicast_enabled", {1}), kUnknownMethod);
    EXPECT_EQ(error_of("set_brightness", {1}), kUnknownMethod);
    EXPECT_EQ(error_of("add_zone", {QVariant::fromValue(QList<ControlZone>{})}), kUnknownMethod);
    EXPECT_EQ(error_of("init_zones", {QVariant::fromValue(ControlZone{})}), kUnknownMethod);
    EXPECT_EQ(error_of("no_such_method", {}), kUnknownMethod);
    // None of them did anything.
    EXPECT_THAT(log_since_mark(), testing::IsEmpty());
}

TEST_F(BusInterfaceTest, SurplusArgumentsAreAnsweredByTheStandardErrorAndNothingHappens) {
    ForwarderSocket wire;
    add_playlist(1, true, Recording{}.dmx(1, {200}), {wire.output("1")});
    add_playlist(2, true, Recording{}.dmx(1, {2}), {wire.output("1")});
    start();
    const ControlZone zone{3, 1, {0}};
    EXPECT_TRUE(controller().add_zone(zone));
    EXPECT_TRUE(controller().play(1));
    const QVariant sent = QVariant::fromValue(zone);
    const QVariant list = QVariant::fromValue(QList<ControlZone>{zone});
    mark_log();
    EXPECT_EQ(error_of("play_playlist", {2, 2}), kUnknownMethod);
    EXPECT_EQ(error_of("pause_playlist", {1, true}), kUnknownMethod);
    EXPECT_EQ(error_of("stop_playlist", {1, 1}), kUnknownMethod);
    EXPECT_EQ(error_of("stop", {1}), kUnknownMethod);
    EXPECT_EQ(error_of("set_brightness", {1, 50, 1}), kUnknownMethod);
    EXPECT_EQ(error_of("set_speed_boost", {1, 50, 1}), kUnknownMethod);
    EXPECT_EQ(error_of("set_unicast_enabled", {false, false}), kUnknownMethod);
    EXPECT_EQ(error_of("init_zones", {list, list}), kUnknownMethod);
    EXPECT_EQ(error_of("add_zone", {sent, sent}), kUnknownMethod);
    EXPECT_EQ(error_of("update_zone", {sent, 1}), kUnknownMethod);
    EXPECT_EQ(error_of("remove_zone", {3, 3}), kUnknownMethod);
    EXPECT_EQ(error_of("remove_all_zones", {QStringLiteral("all")}), kUnknownMethod);
    for (const auto& [method, arguments] : std::vector<std::pair<const char*, QList<QVariant>>>{
             {"setLevel", {6, 6}}, {"getLevel", {1}}, {"useContext", {true, 1}}}) {
        EXPECT_EQ(controller().call_logger(QLatin1String(method), arguments).errorName().toStdString(),
                  kUnknownMethod)
            << method;
    }
    EXPECT_THAT(log_since_mark(), testing::IsEmpty());
    // It plays on at its own brightness, and the level is the old one.
    wire.arrived();
    for (const Frame& frame : wire.next(3)) {
        EXPECT_EQ(frame.level(0), 200);
    }
    EXPECT_EQ(controller().call_logger(QStringLiteral("getLevel")).arguments().value(0).toInt(), 3);
    // The zone is still there, or there would be none to remove.
    controller().stop();
    EXPECT_TRUE(controller().remove_zone(3));
}

TEST_F(BusInterfaceTest, MethodsWithoutAResultAnswerWithAnEmptyMessage) {
    start();
    // Each of these expects an answer without arguments.
    controller().stop();
    controller().set_unicast_enabled(false);
    controller().set_brightness(1, 50);
    controller().set_speed_boost(1, 50);
    controller().stop_playlist(1);
}

TEST_F(BusInterfaceTest, TheEndOfAPlaylistIsSignalledOnceAndThePlaylistStaysLoaded) {
    ForwarderSocket wire;
    add_playlist(4, false, Recording{}.dmx(1, {1}), {wire.output("1")});
    start();
    EXPECT_TRUE(controller().play(4));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    EXPECT_THAT(controller().stopped(), ElementsAre(4));
    EXPECT_EQ(controller().stopped_signature(), "i");
    // The last packet was sent before.
    EXPECT_EQ(wire.arrived().size(), 1u);

    mark_log();
    EXPECT_TRUE(controller().play(4));
    EXPECT_THAT(log_since_mark(), ElementsAre("info [Repeater::play_playlist] Play playlist (playlist_id:4)",
                                              "info [Repeater::play_playlist] Cuelist already playing"));
    // Once it is unloaded no further signal can follow.
    controller().stop_playlist(4);
    EXPECT_THAT(controller().stopped(), ElementsAre(4));
    EXPECT_TRUE(wire.arrived().empty());
}

TEST_F(BusInterfaceTest, APlayInResponseToTheSignalIsAnsweredTrueAndDoesNotRestart) {
    ForwarderSocket wire;
    add_playlist(1, false, Recording{}.dmx(1, {1}), {wire.output("1")});
    add_playlist(2, false, Recording{}.dmx(1, {2}), {wire.output("1")});
    start();
    for (const int id : {1, 2}) {
        EXPECT_TRUE(controller().play(id));
        ASSERT_TRUE(controller().wait_for_stopped(static_cast<std::size_t>(id)));
        mark_log();
        EXPECT_TRUE(controller().play(id));
        EXPECT_EQ(log_since_mark().back(), "info [Repeater::play_playlist] Cuelist already playing");
    }
    EXPECT_THAT(controller().stopped(), ElementsAre(1, 2));
    EXPECT_EQ(wire.next(2)[1].level(0), 2);
}
