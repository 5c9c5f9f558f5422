#pragma once
// orv::common::lwjson::ParseOptions: how strict a Deserializer reads its text.
// The default is plain JSON.

namespace orv::common::lwjson {

struct ParseOptions {
    // Accept "// ..." and "/* ... */" comments, which hand-edited
    // configuration files carry.
    bool allowComments = false;
};

} // namespace orv::common::lwjson
