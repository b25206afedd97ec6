// ats_device.h - the shapes the device commands share: a command answered by its final result
// only, a setting whose error reply is the record's to keep, and a reply kept whole as text.
// Included after frame.h by the identity, factory and power command files.
#pragma once

namespace atapi {

// The exchange's code when it failed, -1 for a final result other than OK, else 0.
inline int result_only(Request& req) {
    if (int rc = req.exchange()) return rc;
    return req.ok() ? 0 : -1;
}

// A setting of a record that has a result field: OK stores AT_CMD_RES_SUCCESS; a +CME or +CMS
// error is the command's outcome, mapped into the field (0); anything else is -1.
inline int set_and_map(Request& req, AT_AMSS_RES& result) {
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return req.map_error(result);
    result = AT_CMD_RES_SUCCESS;
    return 0;
}

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
