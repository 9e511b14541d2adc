// The result codes of one attempt (`uploading`) and of a run (`startUpload`). A row stores its attempt's code in
// FILE_UPLOAD_STATUS, and the job treats every run but 2 and 8 as failed.
#pragma once

#include <cstdint>

namespace zorvalis {

enum UploadStatus : std::int32_t {
    BG_UPLOAD_STATUS_IN_PROGRESS = 1,  // written when an attempt starts, never returned
    BG_UPLOAD_STATUS_SUCCESS = 2,
    BG_UPLOAD_STATUS_INITUPLOADFILE_ERROR = 3,
    BG_UPLOAD_STATUS_UPLOADFILECHUNK_ERROR = 4,
    BG_UPLOAD_STATUS_FINISHUPLOAD_ERROR = 5,
    BG_UPLOAD_STATUS_BASE64_ERROR = 6,
    BG_UPLOAD_STATUS_MD5_ERROR = 7,
    BG_UPLOAD_STATUS_FILEEMPTY = 8,  // nothing to send
    BG_UPLOAD_STATUS_NETWORK_ERROR = 9,
    BG_UPLOAD_STATUS_LIST_OPEN_ERROR = 10,  // the list of files to send cannot be read
    BG_UPLOAD_STATUS_FILE_NOT_EXIST = 11,   // does not make its run fail
    BG_UPLOAD_STATUS_ERROR = 12,            // also a run in which any file failed
};

}  // namespace zorvalis
