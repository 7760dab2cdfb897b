#include "images/qjpeg.h"

#include "foundation/qmessage.h"

#include <cstring>

#include <jerror.h>

namespace tarvik {

namespace {

const long long blocksPerByte = 8;      // a block costs at least a bit of the file
const long long smallBlocks = 1 << 16;  // any file may hold this many: a 2048x2048 grey picture
const long long blockBytes = 64 * sizeof(JCOEF);
const long memorySpare = 16L << 20;     // the library's tables and line buffers beside the coefficients

// The blocks of a component as the decoder keeps them: rounded up to whole MCUs.
long long Blocks(const jpeg_component_info* c)
{
    const long long w = c->width_in_blocks, h = c->height_in_blocks;
    return (w + c->h_samp_factor - 1) / c->h_samp_factor * c->h_samp_factor *
           ((h + c->v_samp_factor - 1) / c->v_samp_factor * c->v_samp_factor);
}

void Report(j_common_ptr info)
{
    const QJpegError* e = reinterpret_cast<const QJpegError*>(info->err);
    char text[JMSG_LENGTH_MAX];
    info->err->format_message(info, text);
    QWARNING("%s(%s); %s", e->who, e->fileName, text);
}

void OnError(j_common_ptr info)
{
    Report(info);
    std::longjmp(reinterpret_cast<QJpegError*>(info->err)->jump, 1);
}

void OnMessage(j_common_ptr info, int level)
{
    if (level >= 0) return; // trace output
    const bool ended = info->err->msg_code == JWRN_JPEG_EOF;
    if (info->err->num_warnings++ == 0) Report(info);
    if (ended) std::longjmp(reinterpret_cast<QJpegError*>(info->err)->jump, 1);
}

// Called by the decoder once for every row of MCUs it takes in, and once more per scan.
void WatchScans(j_common_ptr info)
{
    j_decompress_ptr cinfo = reinterpret_cast<j_decompress_ptr>(info);
    QJpegLimits* l = reinterpret_cast<QJpegLimits*>(cinfo->progress);
    if (cinfo->input_scan_number == l->scan) return;
    l->scan = cinfo->input_scan_number;
    for (int i = 0; i < cinfo->comps_in_scan; i++) l->walked += Blocks(cinfo->cur_comp_info[i]);
    const QJpegError* e = l->err;
    if (l->scan > QJPEG_MAX_SCANS) {
        QWARNING("%s(%s); more than %d scans", e->who, e->fileName, QJPEG_MAX_SCANS);
    } else if (l->walked > QJPEG_MAX_PASSES * l->maxBlocks) {
        QWARNING("%s(%s); %d scans of %ux%u are more than the file holds", e->who, e->fileName, l->scan,
                 cinfo->image_width, cinfo->image_height);
    } else {
        return;
    }
    std::longjmp(l->err->jump, 1);
}

} // namespace

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

bool QJpegLimitDecompress(jpeg_decompress_struct* cinfo, QJpegLimits* limits, QJpegError* err, long size)
{
    std::memset(limits, 0, sizeof *limits);
    limits->err = err;
    limits->maxBlocks = blocksPerByte * (size > 0 ? size : 0) + smallBlocks;
    long long blocks = 0;
    for (int i = 0; i < cinfo->num_components; i++) blocks += Blocks(&cinfo->comp_info[i]);
    const bool multiScan = cinfo->progressive_mode || cinfo->comps_in_scan < cinfo->num_components;
    if (multiScan && blocks > limits->maxBlocks) {
        QWARNING("%s(%s); %ux%u is more than the file holds", err->who, err->fileName, cinfo->image_width,
                 cinfo->image_height);
        return false;
    }
    limits->mgr.progress_monitor = WatchScans;
    cinfo->progress = &limits->mgr;
    // The coefficients live in the library's virtual arrays, which this caps: past it the library
    // would want a backing store, which it has not, and fails. A second guard behind the count above.
    cinfo->mem->max_memory_to_use = long(limits->maxBlocks * blockBytes) + memorySpare;
    return true;
}

} // namespace tarvik
