// ats_device.h - a shape the device commands share beside the frame's: a reply kept whole as text.
// Included after frame.h by the identity, factory and power command files.
#pragma once

namespace atapi {

// The whole reply text into a text record, cut to its field. `map_errors`: a +CME or +CMS error
// goes into the result field (0) instead of failing (-1).
inline int reply_text(Request& req, nvramcontnetres& rec, bool map_errors) {
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return map_errors ? req.map_error(rec.AtExeResult) : -1;
    rec.AtExeResult = AT_CMD_RES_SUCCESS;
    AT_FORMAT_TEXT(rec.Code, req.report());
    return 0;
}

}  // namespace atapi
