#pragma once
// Carries the notice of an ended playlist from the render worker to the main thread.

#include <QObject>

/**
 * Lives on the render worker, so that its signal, connected to the Repeater's of the same name, is queued to
 * the main thread: the worker itself never touches the bus.
 */
class PlaylistStoppedObject final : public QObject {
    Q_OBJECT

Q_SIGNALS:
    void OnPlaylistStopped(int playlist_id);
};
