#pragma once
// What a program that checks description files hears from the parser of them.

/**
 * Hears what PlaylistParser does not take as it stands, beside the lines that it logs.
 *
 * Called within the parser's operations, on their thread. The service itself has none; nothing that an
 * observer does changes what the parser stores, logs or throws.
 */
class PlaylistParserObserver {
public:
    enum class Outcome {
        Rejected,  ///< the whole file cannot be used; an exception follows
        Skipped,   ///< one element of an array is left out
        Absent,    ///< a key is not there; its default holds
        Defaulted  ///< a key has a value that cannot be used; its default holds
    };

    /// The parser turns to an effect. `position`: in playing order, from 0, elements that are no effect
    /// counted as well.
    virtual void begin_effect(int position) = 0;

    /**
     * @param key     key of the playlist or of the effect that the parser is at; empty: the file or the
     *                effect itself
     * @param index   element of the key's array; -1: none
     * @param reason  what is wrong, or the default that holds; part of a sentence. Valid during the call.
     */
    virtual void report(Outcome outcome, const char* key, int index, const char* reason) = 0;

protected:
    ~PlaylistParserObserver() = default;
};
