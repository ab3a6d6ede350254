/** Writes JSON text piece by piece. */
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace norq::json {

/**
 * The members of one object, as compact JSON text. On the path of every published event: building
 * a tree of values first, to write it and throw it away, took most of the time of the whole path.
 * What it writes is what Jansson writes.
 */
class ObjectWriter {
public:
    ObjectWriter() { text += '{'; }

    /** Each adds a member; a text that is not valid UTF-8 makes it throw a RenderError. */
    void addText(std::string_view name, std::string_view value);
    void addBoolean(std::string_view name, bool value);
    /** `decimal` is the number as JSON has it. */
    void addNumber(std::string_view name, std::string_view decimal);
    /** The other object ends with that. */
    void addObject(std::string_view name, ObjectWriter &&object);

    /** Ends the object. */
    std::string finish() &&;

private:
    void beginMember(std::string_view name);

    std::string text;
};

/** A double as JSON has it, with this many significant digits at most. */
std::string decimalOf(double number, std::size_t digits);

} // namespace norq::json
