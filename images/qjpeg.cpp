#include "images/qjpeg.h"

#include "foundation/qmessage.h"

#include <cstring>

#include <jerror.h>

namespace tarvik {

static void Report(j_common_ptr info)
{
    const QJpegError* e = reinterpret_cast<const QJpegError*>(info->err);
    char text[JMSG_LENGTH_MAX];
    info->err->format_message(info, text);
    QWARNING("%s(%s); %s", e->who, e->fileName, text);
}

static void OnError(j_common_ptr info)
{
    Report(info);
    std::longjmp(reinterpret_cast<QJpegError*>(info->err)->jump, 1);
}

static void OnMessage(j_common_ptr info, int level)
{
    if (level >= 0) return; // trace output
    if (info->err->msg_code == JWRN_JPEG_EOF) reinterpret_cast<QJpegError*>(info->err)->truncated = true;
    if (info->err->num_warnings++ > 0) return;
    Report(info);
}

jpeg_error_mgr* QJpegErrorManager(QJpegError* err, const char* who, const char* fileName)
{
    std::memset(err, 0, sizeof *err);
    jpeg_error_mgr* mgr = jpeg_std_error(&err->mgr);
    mgr->error_exit = OnError;
    mgr->emit_message = OnMessage;
    err->who = who;
    err->fileName = fileName ? fileName : "(null)";
    return mgr;
}

} // namespace tarvik
