/* The wire protocol of osdsrv for peers in C99 and C++: records of all messages, packing and
 * unpacking, and a client that numbers its requests, sends them again, and notices when the daemon
 * restarted. docs/protocol.md, "Writing a peer", has an example.
 *
 * Header only, without allocation and without global state: an object belongs to its caller and is
 * used by one thread at a time. Integers are in native byte order. Texts point to the caller's
 * bytes when packed and into the datagram when unpacked; they have a length and no terminator.
 *
 * With OSD_POSIX defined the client comes with sockets (osd_open); a program that asks for strict
 * C99 then also defines _POSIX_C_SOURCE 200809L ahead of all includes. Without it the caller brings
 * three functions.
 *
 * What stands between "generated" marks is made by clients/generate. */
#ifndef OSD_CLIENT_H
#define OSD_CLIENT_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Constants, bits of osd_string_show's flag, and message ids. */
/* clang-format off */
/* generated: constants */
#define OSD_MAX_DATAGRAM 4096u
#define OSD_HEADER_SIZE 18u
#define OSD_MAGIC 0x55667788u
#define OSD_DAEMON_PORT 9636u /* where the daemon listens */
#define OSD_MPP_PORT 9637u /* the media process */
#define OSD_EVERY_CLASS 255u
#define OSD_EVERY_NUMBER 255u
#define OSD_EVERY_ELEMENT 65535u
#define OSD_IMAGE_CLASS 2u
#define OSD_EVERY_OUTPUT 255u
#define OSD_MAX_ENTRIES 16u /* of MppBatchShow */
#define OSD_MASK_POSITION 0x1u
#define OSD_MASK_FONT_SIZE 0x2u
#define OSD_MASK_TEXT_COLOUR 0x4u
#define OSD_MASK_BACKGROUND 0x8u
#define OSD_MASK_TEXT 0x10u
#define OSD_MASK_FOREVER 0x20u

#define OSD_ACK 0x00000000u
#define OSD_PROCESS_SUCCESS 0x00000001u
#define OSD_PROCESS_FAILURE 0x00000002u
#define OSD_ERR_MAGIC_NUM 0x00000003u
#define OSD_ERR_VERSION 0x00000004u
#define OSD_ERR_TYPE 0x00000005u
#define OSD_ERR_SEQUENCE 0x00000006u
#define OSD_ERR_ID 0x00000007u
#define OSD_ERR_PARAM_LEN 0x00000008u
#define OSD_STRING_SHOW 0x00010000u
#define OSD_ELEM_HIDE 0x00010001u
#define OSD_ELEM_DEL 0x00010002u
#define OSD_GUIDE_SHOW 0x00010003u
#define OSD_TOUCH_CALIBRATION 0x00010004u
#define OSD_DISP_IMAGE 0x00010005u
#define OSD_CANCEL_IMAGE 0x00010006u
#define OSD_INIT 0x0001fffeu
#define OSD_DE_INIT 0x0001ffffu
#define OSD_MPP_SHOW 0x00020000u
#define OSD_MPP_HIDE 0x00020001u
#define OSD_MPP_BATCH_SHOW 0x00020002u
#define OSD_MPP_FREEZE 0x00020003u
#define OSD_MPP_UNFREEZE 0x00020004u
#define OSD_MPP_MODIFY_RES 0x00020005u
#define OSD_MPP_QUERY_RES 0x00020006u
#define OSD_MPP_QUERY_DISP_STATUS 0x00020009u
#define OSD_MPP_SET_INPUT_FMT 0x0002000cu
#define OSD_MPP_REQUEST_MEDIA_CHN 0x0002000du
#define OSD_MPP_RELEASE_MEDIA_CHN 0x0002000fu
#define OSD_MPP_AUDIO_PLAY 0x00020010u
#define OSD_MPP_SET_AUDIO_FMT 0x00020011u
#define OSD_MPP_DISP_STATUS_CHG 0x00020012u
#define OSD_MPP_CLEAR_REMAIN_FRAME 0x00020013u
#define OSD_MPP_ADJUST_AUDIO_DELAY 0x00020014u
#define OSD_MPP_ENCODING_CONTROL 0x00020015u
#define OSD_NETFILTER_SOFT_AP_NAT 0x000f0000u
#define OSD_MPP_QUERY_RES_ACK_EXT 0x70002000u
#define OSD_MPP_VPSS_VO_PARAM 0x80002000u
/* generated end */
/* clang-format on */

#define OSD_ANY_LENGTH 0xffffffffu

/* How a request or a datagram fared. Up to 9 as the daemon's log numbers them. */
typedef enum osd_result {
  /* clang-format off */
/* generated: results */
  OSD_DONE = 0,
  OSD_BAD_HEAD_LEN = 1, /* datagram shorter than the header */
  OSD_BAD_MAGIC = 2, /* magic is not 0x55667788 */
  OSD_BAD_VERSION = 3, /* version is not 0 */
  OSD_BAD_TYPE = 4, /* type is none of 'CMD', 'EVT', 'RES' */
  OSD_BAD_SEQUENCE = 5, /* repeats the peer's last sequence number */
  OSD_BAD_ID = 6, /* unknown message id */
  OSD_BAD_PARAM_LEN = 7, /* body length is not the one that the id requires */
  OSD_BAD_BODY = 8, /* the body cannot be decoded */
  OSD_BAD_PORT = 9, /* the remote port has no sequence slot */
/* generated end */
  /* clang-format on */
  OSD_FAILURE = 10,   /* the daemon could not carry it out */
  OSD_NO_ANSWER = 11, /* nothing that belongs to the request came in time */
  OSD_NOBODY = 12,    /* nobody listens at the daemon's port */
  OSD_SOCKET = 13     /* this machine failed; errno */
} osd_result;

typedef struct osd_header {
  uint32_t magic;
  uint8_t version;
  char type[3]; /* "CMD", "EVT" or "RES", not terminated */
  uint32_t seq;
  uint32_t id;
  uint16_t param_len; /* bytes of the body */
} osd_header;

/* clang-format off */
/* generated: records */
typedef struct osd_batch_entry {
  uint16_t vin_seq;
  uint16_t x;
  uint16_t y;
  uint16_t w;
  uint16_t h;
} osd_batch_entry;

typedef struct osd_ack {
  uint32_t msg_seq;
  uint32_t msg_id;
} osd_ack;

typedef struct osd_process_failure {
  uint32_t msg_seq;
  uint32_t msg_id;
  uint32_t msg_err_code;
} osd_process_failure;

typedef struct osd_err_magic {
  uint32_t magic; /* as received */
} osd_err_magic;

typedef struct osd_err_version {
  uint8_t version; /* as received */
  uint8_t supported; /* the one that is understood */
} osd_err_version;

typedef struct osd_err_type {
  char type[3]; /* as received, not terminated */
} osd_err_type;

typedef struct osd_err_sequence {
  uint32_t msg_seq;
  uint32_t prev_seq; /* the last one seen from the peer */
} osd_err_sequence;

typedef struct osd_err_id {
  uint32_t msg_seq;
  uint32_t msg_id;
} osd_err_id;

typedef struct osd_err_param_len {
  uint32_t msg_seq;
  uint32_t msg_id;
  uint16_t param_len; /* as received */
  uint16_t required_len; /* the one that the id requires */
} osd_err_param_len;

typedef struct osd_string_show {
  uint16_t vout_seq;
  uint16_t osd_seq;
  uint32_t flag;
  uint8_t align;
  uint16_t x; /* 16000ths of the canvas width */
  uint16_t y; /* 9000ths of the canvas height */
  uint8_t font_size; /* px on a screen 3840 px wide */
  uint32_t text_colour; /* 0xAARRGGBB */
  uint32_t background; /* 0xAARRGGBB */
  uint16_t str_len; /* bytes of str */
  const char* str;
} osd_string_show;

typedef struct osd_elem {
  uint16_t vout_seq;
  uint16_t osd_seq;
} osd_elem;

typedef struct osd_guide_show {
  uint16_t osd_out;
  uint16_t osd_seq;
  uint32_t path_len; /* bytes of path */
  const char* path;
} osd_guide_show;

typedef struct osd_touch_calibration {
  uint8_t calibration_mode;
} osd_touch_calibration;

typedef struct osd_disp_image {
  uint16_t vout_seq;
  uint16_t osd_seq;
  uint32_t str_len; /* bytes of path */
  const char* path;
  uint16_t x; /* 16000ths of the canvas width */
  uint16_t y; /* 9000ths of the canvas height */
  uint16_t width; /* 16000ths of the canvas width */
  uint16_t height; /* 9000ths of the canvas height */
  uint16_t opacity; /* 0 to 255 */
} osd_disp_image;

typedef struct osd_screen_info {
  int32_t vo_dev;
  int32_t video_layer;
  int32_t x; /* px */
  int32_t y; /* px */
  uint32_t w; /* px */
  uint32_t h; /* px */
} osd_screen_info;

typedef struct osd_mpp_show {
  uint16_t vout;
  uint16_t vin;
  uint16_t x;
  uint16_t y;
  uint16_t w;
  uint16_t h;
} osd_mpp_show;

typedef struct osd_mpp_input {
  uint16_t vout;
  uint16_t vin;
} osd_mpp_input;

typedef struct osd_mpp_batch_show {
  uint16_t vout;
  uint8_t num;
  osd_batch_entry entry[OSD_MAX_ENTRIES];
} osd_mpp_batch_show;

typedef struct osd_mpp_modify_res {
  uint16_t vout;
  uint8_t mode;
  uint16_t width;
  uint16_t height;
  uint16_t frame_rate;
  uint8_t pix_fmt;
  uint8_t color_depth;
} osd_mpp_modify_res;

typedef struct osd_mpp_output {
  uint16_t vout;
} osd_mpp_output;

typedef struct osd_mpp_set_input_fmt {
  uint16_t vin;
  uint16_t width;
  uint16_t height;
  uint16_t frame_rate;
  uint32_t scan_mode;
} osd_mpp_set_input_fmt;

typedef struct osd_mpp_request_media_chn {
  uint16_t vin;
  uint16_t vtype;
  uint16_t width;
  uint16_t height;
  uint16_t frame_rate;
  uint16_t mode;
  uint32_t aspect_ratio;
} osd_mpp_request_media_chn;

typedef struct osd_mpp_release_media_chn {
  uint16_t vin;
} osd_mpp_release_media_chn;

typedef struct osd_mpp_audio_play {
  uint16_t aout;
  uint16_t ain;
} osd_mpp_audio_play;

typedef struct osd_mpp_set_audio_fmt {
  uint16_t ain;
  uint16_t sound_info0;
  uint16_t sound_info1;
  uint16_t sound_info2;
  uint32_t sound_info3;
} osd_mpp_set_audio_fmt;

typedef struct osd_mpp_disp_status_chg {
  uint16_t vout;
  uint8_t connected;
  uint8_t edid_presence;
  uint16_t edid_len; /* bytes of edid */
  const char* edid;
} osd_mpp_disp_status_chg;

typedef struct osd_mpp_adjust_audio_delay {
  uint16_t aout;
  uint16_t delay; /* ms */
} osd_mpp_adjust_audio_delay;

typedef struct osd_mpp_encoding_control {
  uint8_t type;
} osd_mpp_encoding_control;

typedef struct osd_on_off_control {
  uint8_t status;
} osd_on_off_control;

typedef struct osd_query_res_ack_ext {
  uint32_t msg_seq;
  uint16_t vout;
  uint16_t width;
  uint16_t height;
  uint16_t frame_rate;
  uint8_t pix_fmt;
  uint8_t color_depth;
} osd_query_res_ack_ext;

typedef struct osd_mpp_vpss_vo_param {
  uint16_t vin;
  uint16_t switch_;
  uint32_t con;
  uint32_t ie;
  uint32_t sf;
  uint32_t tf;
  uint32_t cf;
  uint32_t ctf;
  uint32_t sp;
  uint32_t vo_lum;
  uint32_t vo_con;
  uint32_t vo_hue;
  uint32_t vo_sat;
} osd_mpp_vpss_vo_param;

typedef struct osd_message {
  osd_header header;
  union {
    osd_ack ack;
    osd_ack process_success;
    osd_process_failure process_failure;
    osd_err_magic err_magic_num;
    osd_err_version err_version;
    osd_err_type err_type;
    osd_err_sequence err_sequence;
    osd_err_id err_id;
    osd_err_param_len err_param_len;
    osd_string_show string_show;
    osd_elem elem_hide;
    osd_elem elem_del;
    osd_guide_show guide_show;
    osd_touch_calibration touch_calibration;
    osd_disp_image disp_image;
    osd_elem cancel_image;
    osd_screen_info init;
    osd_screen_info de_init;
    osd_mpp_show mpp_show;
    osd_mpp_input mpp_hide;
    osd_mpp_batch_show mpp_batch_show;
    osd_mpp_input mpp_freeze;
    osd_mpp_input mpp_unfreeze;
    osd_mpp_modify_res mpp_modify_res;
    osd_mpp_output mpp_query_res;
    osd_mpp_output mpp_query_disp_status;
    osd_mpp_set_input_fmt mpp_set_input_fmt;
    osd_mpp_request_media_chn mpp_request_media_chn;
    osd_mpp_release_media_chn mpp_release_media_chn;
    osd_mpp_audio_play mpp_audio_play;
    osd_mpp_set_audio_fmt mpp_set_audio_fmt;
    osd_mpp_disp_status_chg mpp_disp_status_chg;
    osd_mpp_input mpp_clear_remain_frame;
    osd_mpp_adjust_audio_delay mpp_adjust_audio_delay;
    osd_mpp_encoding_control mpp_encoding_control;
    osd_on_off_control netfilter_soft_ap_nat;
    osd_query_res_ack_ext mpp_query_res_ack_ext;
    osd_mpp_vpss_vo_param mpp_vpss_vo_param;
  } body;
} osd_message;
/* generated end */
/* clang-format on */

/* Packing and unpacking go through the same field lists. */
typedef struct osd_codec {
  uint8_t* out;      /* packing: where to; null when unpacking */
  const uint8_t* in; /* unpacking: where from */
  size_t size;       /* bytes that fit at out, or that arrived at in */
  size_t at;
  uint16_t param_len; /* as received */
  int refused;        /* it does not fit, or cannot be decoded */
} osd_codec;

/* Bytes that did not arrive read as 0, as at the daemon. */
static inline uint32_t osd_number(osd_codec* c, uint32_t value, unsigned width) {
  uint32_t read = 0;
  unsigned i;
  for (i = 0; i < width; i++, c->at++) {
    if (c->at >= c->size)
      c->refused |= c->out != NULL;
    else if (c->out)
      c->out[c->at] = (uint8_t)(value >> 8 * i);
    else
      read |= (uint32_t)c->in[c->at] << 8 * i;
  }
  return c->out ? value : read;
}

static inline void osd_u8(osd_codec* c, uint8_t* v) { *v = (uint8_t)osd_number(c, *v, 1); }
static inline void osd_u16(osd_codec* c, uint16_t* v) { *v = (uint16_t)osd_number(c, *v, 2); }
static inline void osd_u32(osd_codec* c, uint32_t* v) { *v = osd_number(c, *v, 4); }
static inline void osd_s32(osd_codec* c, int32_t* v) {
  *v = (int32_t)osd_number(c, (uint32_t)*v, 4);
}

static inline void osd_chars(osd_codec* c, char* chars, unsigned count) {
  unsigned i;
  for (i = 0; i < count; i++) chars[i] = (char)osd_number(c, (uint8_t)chars[i], 1);
}

/* Bytes that are copied out, or pointed to when all of them arrived. */
static inline void osd_bytes(osd_codec* c, const char** bytes, size_t length) {
  if (length == 0) return;
  if (length > c->size || c->at > c->size - length) {
    c->refused = 1;
    return;
  }
  if (c->out)
    memcpy(c->out + c->at, *bytes, length);
  else
    *bytes = (const char*)c->in + c->at;
  c->at += length;
}

/* A null text is sent as an empty one. */
static inline void osd_text16(osd_codec* c, uint16_t* length, const char** text) {
  if (c->out && !*text) *length = 0;
  osd_u16(c, length);
  osd_bytes(c, text, *length);
}

static inline void osd_text32(osd_codec* c, uint32_t* length, const char** text) {
  if (c->out && !*text) *length = 0;
  osd_u32(c, length);
  osd_bytes(c, text, *length);
}

/* A path of one byte counts as none. */
static inline void osd_path32(osd_codec* c, uint32_t* length, const char** path) {
  if (c->out) {
    osd_text32(c, length, path);
    return;
  }
  osd_u32(c, length);
  if (*length < 2) *length = 0;
  osd_bytes(c, path, *length);
}

static inline void osd_entries(osd_codec* c, unsigned num, osd_batch_entry* m) {
  unsigned i;
  if (num > OSD_MAX_ENTRIES || (!c->out && c->param_len != 3 + 10 * num)) {
    c->refused = 1;
    return;
  }
  for (i = 0; i < num; i++) {
    /* clang-format off */
/* generated: entry */
    osd_u16(c, &m[i].vin_seq);
    osd_u16(c, &m[i].x);
    osd_u16(c, &m[i].y);
    osd_u16(c, &m[i].w);
    osd_u16(c, &m[i].h);
/* generated end */
    /* clang-format on */
  }
}

/* clang-format off */
/* generated: fields */
static inline void osd_ack_fields(osd_codec* c, osd_ack* m) {
  osd_u32(c, &m->msg_seq);
  osd_u32(c, &m->msg_id);
}

static inline void osd_process_failure_fields(osd_codec* c, osd_process_failure* m) {
  osd_u32(c, &m->msg_seq);
  osd_u32(c, &m->msg_id);
  osd_u32(c, &m->msg_err_code);
}

static inline void osd_err_magic_fields(osd_codec* c, osd_err_magic* m) {
  osd_u32(c, &m->magic);
}

static inline void osd_err_version_fields(osd_codec* c, osd_err_version* m) {
  osd_u8(c, &m->version);
  osd_u8(c, &m->supported);
}

static inline void osd_err_type_fields(osd_codec* c, osd_err_type* m) {
  osd_chars(c, m->type, 3);
}

static inline void osd_err_sequence_fields(osd_codec* c, osd_err_sequence* m) {
  osd_u32(c, &m->msg_seq);
  osd_u32(c, &m->prev_seq);
}

static inline void osd_err_id_fields(osd_codec* c, osd_err_id* m) {
  osd_u32(c, &m->msg_seq);
  osd_u32(c, &m->msg_id);
}

static inline void osd_err_param_len_fields(osd_codec* c, osd_err_param_len* m) {
  osd_u32(c, &m->msg_seq);
  osd_u32(c, &m->msg_id);
  osd_u16(c, &m->param_len);
  osd_u16(c, &m->required_len);
}

static inline void osd_string_show_fields(osd_codec* c, osd_string_show* m) {
  osd_u16(c, &m->vout_seq);
  osd_u16(c, &m->osd_seq);
  osd_u32(c, &m->flag);
  osd_u8(c, &m->align);
  osd_u16(c, &m->x);
  osd_u16(c, &m->y);
  osd_u8(c, &m->font_size);
  osd_u32(c, &m->text_colour);
  osd_u32(c, &m->background);
  if (m->flag & 0x10) osd_text16(c, &m->str_len, &m->str);
}

static inline void osd_elem_fields(osd_codec* c, osd_elem* m) {
  osd_u16(c, &m->vout_seq);
  osd_u16(c, &m->osd_seq);
}

static inline void osd_guide_show_fields(osd_codec* c, osd_guide_show* m) {
  osd_u16(c, &m->osd_out);
  osd_u16(c, &m->osd_seq);
  osd_path32(c, &m->path_len, &m->path);
}

static inline void osd_touch_calibration_fields(osd_codec* c, osd_touch_calibration* m) {
  osd_u8(c, &m->calibration_mode);
}

static inline void osd_disp_image_fields(osd_codec* c, osd_disp_image* m) {
  osd_u16(c, &m->vout_seq);
  osd_u16(c, &m->osd_seq);
  osd_text32(c, &m->str_len, &m->path);
  osd_u16(c, &m->x);
  osd_u16(c, &m->y);
  osd_u16(c, &m->width);
  osd_u16(c, &m->height);
  osd_u16(c, &m->opacity);
}

static inline void osd_screen_info_fields(osd_codec* c, osd_screen_info* m) {
  osd_s32(c, &m->vo_dev);
  osd_s32(c, &m->video_layer);
  osd_s32(c, &m->x);
  osd_s32(c, &m->y);
  osd_u32(c, &m->w);
  osd_u32(c, &m->h);
}

static inline void osd_mpp_show_fields(osd_codec* c, osd_mpp_show* m) {
  osd_u16(c, &m->vout);
  osd_u16(c, &m->vin);
  osd_u16(c, &m->x);
  osd_u16(c, &m->y);
  osd_u16(c, &m->w);
  osd_u16(c, &m->h);
}

static inline void osd_mpp_input_fields(osd_codec* c, osd_mpp_input* m) {
  osd_u16(c, &m->vout);
  osd_u16(c, &m->vin);
}

static inline void osd_mpp_batch_show_fields(osd_codec* c, osd_mpp_batch_show* m) {
  osd_u16(c, &m->vout);
  osd_u8(c, &m->num);
  osd_entries(c, m->num, m->entry);
}

static inline void osd_mpp_modify_res_fields(osd_codec* c, osd_mpp_modify_res* m) {
  osd_u16(c, &m->vout);
  osd_u8(c, &m->mode);
  osd_u16(c, &m->width);
  osd_u16(c, &m->height);
  osd_u16(c, &m->frame_rate);
  osd_u8(c, &m->pix_fmt);
  osd_u8(c, &m->color_depth);
}

static inline void osd_mpp_output_fields(osd_codec* c, osd_mpp_output* m) {
  osd_u16(c, &m->vout);
}

static inline void osd_mpp_set_input_fmt_fields(osd_codec* c, osd_mpp_set_input_fmt* m) {
  osd_u16(c, &m->vin);
  osd_u16(c, &m->width);
  osd_u16(c, &m->height);
  osd_u16(c, &m->frame_rate);
  osd_u32(c, &m->scan_mode);
}

static inline void osd_mpp_request_media_chn_fields(osd_codec* c, osd_mpp_request_media_chn* m) {
  osd_u16(c, &m->vin);
  osd_u16(c, &m->vtype);
  osd_u16(c, &m->width);
  osd_u16(c, &m->height);
  osd_u16(c, &m->frame_rate);
  osd_u16(c, &m->mode);
  osd_u32(c, &m->aspect_ratio);
}

static inline void osd_mpp_release_media_chn_fields(osd_codec* c, osd_mpp_release_media_chn* m) {
  osd_u16(c, &m->vin);
}

static inline void osd_mpp_audio_play_fields(osd_codec* c, osd_mpp_audio_play* m) {
  osd_u16(c, &m->aout);
  osd_u16(c, &m->ain);
}

static inline void osd_mpp_set_audio_fmt_fields(osd_codec* c, osd_mpp_set_audio_fmt* m) {
  osd_u16(c, &m->ain);
  osd_u16(c, &m->sound_info0);
  osd_u16(c, &m->sound_info1);
  osd_u16(c, &m->sound_info2);
  osd_u32(c, &m->sound_info3);
}

static inline void osd_mpp_disp_status_chg_fields(osd_codec* c, osd_mpp_disp_status_chg* m) {
  osd_u16(c, &m->vout);
  osd_u8(c, &m->connected);
  osd_u8(c, &m->edid_presence);
  if (m->edid_presence == 2) osd_text16(c, &m->edid_len, &m->edid);
}

static inline void osd_mpp_adjust_audio_delay_fields(osd_codec* c, osd_mpp_adjust_audio_delay* m) {
  osd_u16(c, &m->aout);
  osd_u16(c, &m->delay);
}

static inline void osd_mpp_encoding_control_fields(osd_codec* c, osd_mpp_encoding_control* m) {
  osd_u8(c, &m->type);
}

static inline void osd_on_off_control_fields(osd_codec* c, osd_on_off_control* m) {
  osd_u8(c, &m->status);
}

static inline void osd_query_res_ack_ext_fields(osd_codec* c, osd_query_res_ack_ext* m) {
  osd_u32(c, &m->msg_seq);
  osd_u16(c, &m->vout);
  osd_u16(c, &m->width);
  osd_u16(c, &m->height);
  osd_u16(c, &m->frame_rate);
  osd_u8(c, &m->pix_fmt);
  osd_u8(c, &m->color_depth);
}

static inline void osd_mpp_vpss_vo_param_fields(osd_codec* c, osd_mpp_vpss_vo_param* m) {
  osd_u16(c, &m->vin);
  osd_u16(c, &m->switch_);
  osd_u32(c, &m->con);
  osd_u32(c, &m->ie);
  osd_u32(c, &m->sf);
  osd_u32(c, &m->tf);
  osd_u32(c, &m->cf);
  osd_u32(c, &m->ctf);
  osd_u32(c, &m->sp);
  osd_u32(c, &m->vo_lum);
  osd_u32(c, &m->vo_con);
  osd_u32(c, &m->vo_hue);
  osd_u32(c, &m->vo_sat);
}

static inline void osd_fields(osd_codec* c, osd_message* m) {
  switch (m->header.id) {
    case OSD_ACK:
      osd_ack_fields(c, &m->body.ack);
      break;
    case OSD_PROCESS_SUCCESS:
      osd_ack_fields(c, &m->body.process_success);
      break;
    case OSD_PROCESS_FAILURE:
      osd_process_failure_fields(c, &m->body.process_failure);
      break;
    case OSD_ERR_MAGIC_NUM:
      osd_err_magic_fields(c, &m->body.err_magic_num);
      break;
    case OSD_ERR_VERSION:
      osd_err_version_fields(c, &m->body.err_version);
      break;
    case OSD_ERR_TYPE:
      osd_err_type_fields(c, &m->body.err_type);
      break;
    case OSD_ERR_SEQUENCE:
      osd_err_sequence_fields(c, &m->body.err_sequence);
      break;
    case OSD_ERR_ID:
      osd_err_id_fields(c, &m->body.err_id);
      break;
    case OSD_ERR_PARAM_LEN:
      osd_err_param_len_fields(c, &m->body.err_param_len);
      break;
    case OSD_STRING_SHOW:
      osd_string_show_fields(c, &m->body.string_show);
      break;
    case OSD_ELEM_HIDE:
      osd_elem_fields(c, &m->body.elem_hide);
      break;
    case OSD_ELEM_DEL:
      osd_elem_fields(c, &m->body.elem_del);
      break;
    case OSD_GUIDE_SHOW:
      osd_guide_show_fields(c, &m->body.guide_show);
      break;
    case OSD_TOUCH_CALIBRATION:
      osd_touch_calibration_fields(c, &m->body.touch_calibration);
      break;
    case OSD_DISP_IMAGE:
      osd_disp_image_fields(c, &m->body.disp_image);
      break;
    case OSD_CANCEL_IMAGE:
      osd_elem_fields(c, &m->body.cancel_image);
      break;
    case OSD_INIT:
      osd_screen_info_fields(c, &m->body.init);
      break;
    case OSD_DE_INIT:
      osd_screen_info_fields(c, &m->body.de_init);
      break;
    case OSD_MPP_SHOW:
      osd_mpp_show_fields(c, &m->body.mpp_show);
      break;
    case OSD_MPP_HIDE:
      osd_mpp_input_fields(c, &m->body.mpp_hide);
      break;
    case OSD_MPP_BATCH_SHOW:
      osd_mpp_batch_show_fields(c, &m->body.mpp_batch_show);
      break;
    case OSD_MPP_FREEZE:
      osd_mpp_input_fields(c, &m->body.mpp_freeze);
      break;
    case OSD_MPP_UNFREEZE:
      osd_mpp_input_fields(c, &m->body.mpp_unfreeze);
      break;
    case OSD_MPP_MODIFY_RES:
      osd_mpp_modify_res_fields(c, &m->body.mpp_modify_res);
      break;
    case OSD_MPP_QUERY_RES:
      osd_mpp_output_fields(c, &m->body.mpp_query_res);
      break;
    case OSD_MPP_QUERY_DISP_STATUS:
      osd_mpp_output_fields(c, &m->body.mpp_query_disp_status);
      break;
    case OSD_MPP_SET_INPUT_FMT:
      osd_mpp_set_input_fmt_fields(c, &m->body.mpp_set_input_fmt);
      break;
    case OSD_MPP_REQUEST_MEDIA_CHN:
      osd_mpp_request_media_chn_fields(c, &m->body.mpp_request_media_chn);
      break;
    case OSD_MPP_RELEASE_MEDIA_CHN:
      osd_mpp_release_media_chn_fields(c, &m->body.mpp_release_media_chn);
      break;
    case OSD_MPP_AUDIO_PLAY:
      osd_mpp_audio_play_fields(c, &m->body.mpp_audio_play);
      break;
    case OSD_MPP_SET_AUDIO_FMT:
      osd_mpp_set_audio_fmt_fields(c, &m->body.mpp_set_audio_fmt);
      break;
    case OSD_MPP_DISP_STATUS_CHG:
      osd_mpp_disp_status_chg_fields(c, &m->body.mpp_disp_status_chg);
      break;
    case OSD_MPP_CLEAR_REMAIN_FRAME:
      osd_mpp_input_fields(c, &m->body.mpp_clear_remain_frame);
      break;
    case OSD_MPP_ADJUST_AUDIO_DELAY:
      osd_mpp_adjust_audio_delay_fields(c, &m->body.mpp_adjust_audio_delay);
      break;
    case OSD_MPP_ENCODING_CONTROL:
      osd_mpp_encoding_control_fields(c, &m->body.mpp_encoding_control);
      break;
    case OSD_NETFILTER_SOFT_AP_NAT:
      osd_on_off_control_fields(c, &m->body.netfilter_soft_ap_nat);
      break;
    case OSD_MPP_QUERY_RES_ACK_EXT:
      osd_query_res_ack_ext_fields(c, &m->body.mpp_query_res_ack_ext);
      break;
    case OSD_MPP_VPSS_VO_PARAM:
      osd_mpp_vpss_vo_param_fields(c, &m->body.mpp_vpss_vo_param);
      break;
  }
}
/* generated end */
/* clang-format on */

typedef struct osd_message_row {
  uint32_t id;
  uint32_t required_len; /* of param_len, or OSD_ANY_LENGTH */
  const char* name;
} osd_message_row;

/* Null for an id that is not defined. */
static inline const osd_message_row* osd_find_message(uint32_t id) {
  static const osd_message_row rows[] = {
      /* clang-format off */
/* generated: messages */
      {OSD_ACK, OSD_ANY_LENGTH, "Ack"},
      {OSD_PROCESS_SUCCESS, OSD_ANY_LENGTH, "ProcessSuccess"},
      {OSD_PROCESS_FAILURE, OSD_ANY_LENGTH, "ProcessFailure"},
      {OSD_ERR_MAGIC_NUM, OSD_ANY_LENGTH, "ERR_RES_MSG_MAGIC_NUM"},
      {OSD_ERR_VERSION, OSD_ANY_LENGTH, "ERR_RES_MSG_VERSION"},
      {OSD_ERR_TYPE, OSD_ANY_LENGTH, "ERR_RES_MSG_TYPE"},
      {OSD_ERR_SEQUENCE, OSD_ANY_LENGTH, "ERR_RES_MSG_SEQUENCE"},
      {OSD_ERR_ID, OSD_ANY_LENGTH, "ERR_RES_MSG_ID"},
      {OSD_ERR_PARAM_LEN, OSD_ANY_LENGTH, "ERR_RES_MSG_PARAM_LEN"},
      {OSD_STRING_SHOW, OSD_ANY_LENGTH, "OsdStringShow"},
      {OSD_ELEM_HIDE, OSD_ANY_LENGTH, "OsdElemHide"},
      {OSD_ELEM_DEL, OSD_ANY_LENGTH, "OsdElemDel"},
      {OSD_GUIDE_SHOW, OSD_ANY_LENGTH, "OsdGuideShow"},
      {OSD_TOUCH_CALIBRATION, OSD_ANY_LENGTH, "OsdTouchCalibration"},
      {OSD_DISP_IMAGE, OSD_ANY_LENGTH, "OsdDispImage"},
      {OSD_CANCEL_IMAGE, OSD_ANY_LENGTH, "OsdCancelImage"},
      {OSD_INIT, OSD_ANY_LENGTH, "OsdInit"},
      {OSD_DE_INIT, OSD_ANY_LENGTH, "OsdDeInit"},
      {OSD_MPP_SHOW, 12, "MppShow"},
      {OSD_MPP_HIDE, 4, "MppHide"},
      {OSD_MPP_BATCH_SHOW, OSD_ANY_LENGTH, "MppBatchShow"},
      {OSD_MPP_FREEZE, 4, "MppFreeze"},
      {OSD_MPP_UNFREEZE, 4, "MppUnfreeze"},
      {OSD_MPP_MODIFY_RES, 11, "MppModifyRes"},
      {OSD_MPP_QUERY_RES, 2, "MppQueryRes"},
      {OSD_MPP_QUERY_DISP_STATUS, 2, "MppQueryDispStatus"},
      {OSD_MPP_SET_INPUT_FMT, 12, "MppSetInputFmt"},
      {OSD_MPP_REQUEST_MEDIA_CHN, 16, "MppRequestMediaChn"},
      {OSD_MPP_RELEASE_MEDIA_CHN, 2, "MppReleaseMediaChn"},
      {OSD_MPP_AUDIO_PLAY, 4, "MppAudioPlay"},
      {OSD_MPP_SET_AUDIO_FMT, 12, "MppSetAudioFmt"},
      {OSD_MPP_DISP_STATUS_CHG, OSD_ANY_LENGTH, "MppDispStatusChg"},
      {OSD_MPP_CLEAR_REMAIN_FRAME, 4, "MppClearRemainFrame"},
      {OSD_MPP_ADJUST_AUDIO_DELAY, 4, "MppAdjustAudioDelay"},
      {OSD_MPP_ENCODING_CONTROL, 1, "MppEncodingControl"},
      {OSD_NETFILTER_SOFT_AP_NAT, 1, "NetfilterSoftApNat"},
      {OSD_MPP_QUERY_RES_ACK_EXT, 14, "MppQueryResAckExt"},
      {OSD_MPP_VPSS_VO_PARAM, 48, "MppVpssVoParam"},
/* generated end */
      /* clang-format on */
  };
  size_t i;
  for (i = 0; i < sizeof rows / sizeof rows[0]; i++)
    if (rows[i].id == id) return &rows[i];
  return NULL;
}

typedef struct osd_peer_row {
  uint16_t port;
  int heard;       /* 0: the daemon does not answer requests from this port */
  uint32_t always; /* the sequence number that is accepted at any time; the first to send */
  const char* name;
} osd_peer_row;

/* Null for a port that is no peer's. */
static inline const osd_peer_row* osd_find_peer(uint16_t port) {
  static const osd_peer_row rows[] = {
      /* clang-format off */
/* generated: peers */
      {9634, 1, 0, "Test"},
      {9635, 1, 0, "MainCtl"},
      {9636, 1, 0, "Osd"},
      {9637, 1, 0, "Mpp"},
      {9638, 0, 0, "Upgrade"},
      {9639, 1, 0, "UsbCam"},
      {9640, 1, 1, "HdmiIn"},
      {9641, 1, 0, "Ipav"},
      {9642, 1, 1, "Airplay"},
      {9643, 1, 1, "Miracast"},
      {9644, 1, 1, "ZtCast"},
      {9645, 1, 1, "VkDongle"},
      {9646, 0, 0, "Unknown"},
      {9647, 1, 1, "ZtDongle"},
      {9648, 1, 0, "HIDTrans"},
/* generated end */
      /* clang-format on */
  };
  const unsigned row = (unsigned)port - rows[0].port;
  return row < sizeof rows / sizeof rows[0] ? &rows[row] : NULL;
}

/* Whether the daemon takes seq from this peer, of which it has noted *last (0 at its start); then
 * seq is noted. */
static inline int osd_accepts(const osd_peer_row* peer, uint32_t seq, uint32_t* last) {
  if (!peer->heard || (seq == *last && seq != peer->always)) return 0;
  *last = seq;
  return 1;
}

/* What a result means; static. */
static inline const char* osd_words(osd_result result) {
  static const char* const words[] = {
      "done",
      /* clang-format off */
/* generated: words */
      "datagram shorter than the header",
      "magic is not 0x55667788",
      "version is not 0",
      "type is none of 'CMD', 'EVT', 'RES'",
      "repeats the peer's last sequence number",
      "unknown message id",
      "body length is not the one that the id requires",
      "the body cannot be decoded",
      "the remote port has no sequence slot",
/* generated end */
      /* clang-format on */
      "the daemon could not carry it out",
      "nothing that belongs to the request came in time",
      "nobody listens at the daemon's port",
      "the socket failed",
  };
  return (unsigned)result < sizeof words / sizeof words[0] ? words[result] : "unknown";
}

/* An empty message of this id: a command, or a reply for the ids up to OSD_ERR_PARAM_LEN. */
static inline osd_message osd_make(uint32_t id) {
  osd_message m;
  memset(&m, 0, sizeof m);
  m.header.magic = OSD_MAGIC;
  m.header.id = id;
  memcpy(m.header.type, id <= OSD_ERR_PARAM_LEN ? "RES" : "CMD", 3);
  return m;
}

static inline void osd_header_fields(osd_codec* c, osd_header* h) {
  int shift;
  for (shift = 24; shift >= 0; shift -= 8) { /* the one big-endian field */
    const uint32_t byte = osd_number(c, (h->magic >> shift) & 0xff, 1);
    if (!c->out) h->magic = h->magic << 8 | byte;
  }
  osd_u8(c, &h->version);
  osd_chars(c, h->type, 3);
  osd_u32(c, &h->seq);
  osd_u32(c, &h->id);
  osd_u16(c, &h->param_len);
}

/* The length of the datagram made of *message in size bytes at buffer; 0 when it does not fit there
 * or into OSD_MAX_DATAGRAM, when its id is unknown, or a batch has too many entries. param_len is
 * filled in. */
static inline size_t osd_pack(const osd_message* message, uint8_t* buffer, size_t size) {
  osd_message m = *message;
  osd_codec c = {NULL, NULL, 0, OSD_HEADER_SIZE, 0, 0};
  size_t length;
  c.out = buffer;
  c.size = size < OSD_MAX_DATAGRAM ? size : OSD_MAX_DATAGRAM;
  if (!osd_find_message(m.header.id)) return 0;
  osd_fields(&c, &m);
  if (c.refused) return 0;
  length = c.at;
  m.header.param_len = (uint16_t)(length - OSD_HEADER_SIZE);
  c.at = 0;
  osd_header_fields(&c, &m.header);
  return c.refused ? 0 : length;
}

/* What the daemon checks of a header but the sequence number, in its order. */
static inline osd_result osd_check_header(const osd_header* h) {
  const osd_message_row* const row = osd_find_message(h->id);
  if (h->magic != OSD_MAGIC) return OSD_BAD_MAGIC;
  if (h->version != 0) return OSD_BAD_VERSION;
  if (memcmp(h->type, "CMD", 3) && memcmp(h->type, "EVT", 3) && memcmp(h->type, "RES", 3))
    return OSD_BAD_TYPE;
  if (!row) return OSD_BAD_ID;
  if (row->required_len != OSD_ANY_LENGTH && row->required_len != h->param_len)
    return OSD_BAD_PARAM_LEN;
  return OSD_DONE;
}

/* The message in the length bytes at datagram; its texts point there. Numbers that were not sent
 * are 0, as at the daemon; a text that was not sent whole is refused (OSD_BAD_BODY). Also refused:
 * OSD_BAD_HEAD_LEN to OSD_BAD_TYPE, OSD_BAD_ID, OSD_BAD_PARAM_LEN; the header is there in all but
 * the first case. */
static inline osd_result osd_unpack(const uint8_t* datagram, size_t length, osd_message* message) {
  osd_codec c = {NULL, NULL, 0, 0, 0, 0};
  osd_result result;
  memset(message, 0, sizeof *message);
  if (length < OSD_HEADER_SIZE) return OSD_BAD_HEAD_LEN;
  c.in = datagram;
  c.size = length < OSD_MAX_DATAGRAM ? length : OSD_MAX_DATAGRAM;
  osd_header_fields(&c, &message->header);
  c.param_len = message->header.param_len;
  result = osd_check_header(&message->header);
  if (result != OSD_DONE) return result;
  osd_fields(&c, message);
  return c.refused ? OSD_BAD_BODY : OSD_DONE;
}

/* An osdSeq: a class, 1 unless you know better, and a number in it. */
static inline uint16_t osd_element(unsigned element_class, unsigned number) {
  return (uint16_t)(element_class << 8 | number);
}

/* Two numbers of the device's font: advanceWidthMax of its table hhea, unitsPerEm of head. */
typedef struct osd_font {
  uint32_t advance;
  uint32_t units;
} osd_font;
static const osd_font osd_dejavu_sans_mono = {1233, 2048};

/* The width in px of a text of length characters on a canvas canvas_width px wide, as the daemon
 * draws it; of one cell for a length of 1. font_size as in osd_string_show. */
static inline uint32_t osd_text_width(const osd_font* font, uint32_t font_size,
                                      uint32_t canvas_width, uint32_t length) {
  const uint64_t wanted = (uint64_t)canvas_width * (font_size ? font_size : 32) / 3840;
  const uint64_t size = wanted == 0 ? 1 : wanted < 0xffff ? wanted : 0xffff;
  /* 16.16 from units of the font to 64ths of a pixel */
  const uint64_t scale = ((size << 22) + font->units / 2) / font->units;
  const uint64_t cell = (((font->advance * scale + 0x8000) >> 16) + 32) >> 6;
  return (uint32_t)cell * (length < 64 ? length : 64);
}

/* A peer's side of the conversation. */
typedef struct osd_client osd_client;
struct osd_client {
  /* Brought by the caller, or by osd_open. send: 0, or one of the results. receive: waits up to
   * timeout_ms for a datagram from the daemon; its length, or the negative of OSD_NO_ANSWER,
   * OSD_NOBODY or OSD_SOCKET. now: milliseconds of any clock that runs evenly; may wrap. */
  osd_result (*send)(osd_client* client, const uint8_t* datagram, size_t length);
  int (*receive)(osd_client* client, uint8_t* buffer, size_t size, uint32_t timeout_ms);
  uint32_t (*now)(osd_client* client);
  /* Gets what comes from the daemon and is no answer, such as a hide that it forwards; or null. */
  void (*other)(osd_client* client, const osd_message* message);
  void* user; /* the caller's */
  int fd;     /* of osd_open */

  uint32_t timeout_ms; /* for each attempt; 1000 */
  int attempts;        /* 3 */

  /* Counts the daemons that were heard: 1 with the first answer, more after each restart. A new one
   * has no layers and no elements: the caller initialises and shows everything when this differs
   * from what it was the last time. */
  uint32_t generation;

  const osd_peer_row* peer;
  uint32_t next_seq;
  uint32_t noted;      /* the last number that was acknowledged */
  int heard;           /* the daemon was heard, and has not gone since */
  uint32_t daemon_seq; /* the last number that it sent */
  uint8_t buffer[OSD_MAX_DATAGRAM];
};

/* Makes *client that of a peer's port, without the functions. OSD_BAD_PORT when the daemon does not
 * answer that port. */
static inline osd_result osd_start(osd_client* client, uint16_t port) {
  memset(client, 0, sizeof *client);
  client->fd = -1;
  client->timeout_ms = 1000;
  client->attempts = 3;
  client->peer = osd_find_peer(port);
  if (!client->peer || !client->peer->heard) return OSD_BAD_PORT;
  client->next_seq = client->noted = client->peer->always;
  return OSD_DONE;
}

/* The daemon numbers all that it sends from 0 on: a number that does not rise is a new daemon's. */
static inline void osd_hear(osd_client* client, uint32_t daemon_seq) {
  if (!client->heard || (int32_t)(daemon_seq - client->daemon_seq) <= 0) client->generation++;
  client->heard = 1;
  client->daemon_seq = daemon_seq;
}

/* What a datagram says about the request with a number from first to request's; OSD_NO_ANSWER when
 * it is about something else. */
static inline osd_result osd_judge(const osd_message* m, const osd_header* request,
                                   uint32_t first) {
  const uint32_t id = m->header.id;
  const osd_process_failure* const about = &m->body.process_failure; /* others begin like it */
  if (memcmp(m->header.type, "RES", 3) || id == OSD_PROCESS_SUCCESS || id > OSD_ERR_PARAM_LEN)
    return OSD_NO_ANSWER;
  if (id < OSD_ERR_MAGIC_NUM || id > OSD_ERR_TYPE) {
    if (about->msg_seq - first > request->seq - first) return OSD_NO_ANSWER;
    if (id != OSD_ERR_SEQUENCE && about->msg_id != request->id) return OSD_NO_ANSWER;
  }
  if (id == OSD_ACK) return OSD_DONE;
  return id == OSD_PROCESS_FAILURE ? OSD_FAILURE : (osd_result)(id - 1);
}

/* Waits for what belongs to a request; everything else goes to other. */
static inline osd_result osd_await(osd_client* client, const osd_header* request, uint32_t first,
                                   osd_message* reply) {
  const uint32_t start = client->now(client);
  uint32_t waited = 0;
  do {
    const int length =
        client->receive(client, client->buffer, sizeof client->buffer, client->timeout_ms - waited);
    osd_result result;
    if (length == -OSD_NOBODY) client->heard = 0;
    if (length == -OSD_NO_ANSWER) continue; /* time tells, since signals cut a wait short */
    if (length < 0) return (osd_result)-length;
    if (osd_unpack(client->buffer, (size_t)length, reply) != OSD_DONE) continue;
    osd_hear(client, reply->header.seq);
    result = osd_judge(reply, request, first);
    if (result == OSD_DONE) client->noted = reply->body.ack.msg_seq;
    if (result != OSD_NO_ANSWER) return result;
    if (client->other) client->other(client, reply);
  } while ((waited = client->now(client) - start) < client->timeout_ms);
  return OSD_NO_ANSWER;
}

/* Sends *request under the number in its header and waits; the reply is good until the next call. */
static inline osd_result osd_ask_once(osd_client* client, const osd_message* request,
                                      uint32_t first, osd_message* reply) {
  const size_t length = osd_pack(request, client->buffer, sizeof client->buffer);
  osd_result result;
  if (length == 0) return OSD_BAD_BODY;
  result = client->send(client, client->buffer, length);
  if (result == OSD_NOBODY) client->heard = 0;
  return result == OSD_DONE ? osd_await(client, &request->header, first, reply) : result;
}

/* Sends *request, whose number is filled in, until it is answered, with a new number each time.
 * OSD_DONE when it is acknowledged; else the last attempt's result: the daemon's refusal with its
 * words in *reply, OSD_BAD_BODY for what does not fit a datagram, OSD_NO_ANSWER, OSD_NOBODY or
 * OSD_SOCKET. *reply is good until the next call. */
static inline osd_result osd_ask(osd_client* client, osd_message* request, osd_message* reply) {
  const uint32_t first = client->next_seq;
  osd_result result = OSD_NO_ANSWER;
  int attempt;
  for (attempt = 0; attempt < client->attempts; attempt++) {
    request->header.seq = client->next_seq++;
    result = osd_ask_once(client, request, first, reply);
    if (result != OSD_NO_ANSWER && result != OSD_NOBODY && result != OSD_BAD_SEQUENCE) break;
  }
  return result;
}

/* Finds out whether the daemon is still the one that acknowledged the last request, which its own
 * numbers may hide when it has answered many others since: counts generation up if it is not. The
 * last number is repeated in a request that changes nothing; who noted it refuses it. Where that cannot be told
 * (the last request was not acknowledged, or had the number that is accepted at any time) this is an
 * ordinary request. OSD_DONE when the daemon answers, else as osd_ask. */
static inline osd_result osd_probe(osd_client* client) {
  osd_message request = osd_make(OSD_TOUCH_CALIBRATION), reply;
  osd_result result;
  request.body.touch_calibration.calibration_mode = 2; /* no mode */
  if (client->noted == client->peer->always || client->noted + 1 != client->next_seq)
    return osd_ask(client, &request, &reply);
  request.header.seq = client->noted;
  result = osd_ask_once(client, &request, client->noted, &reply);
  if (result == OSD_DONE) client->generation++;
  return result == OSD_BAD_SEQUENCE ? OSD_DONE : result;
}

#ifdef __cplusplus
}
#endif

#ifdef OSD_POSIX
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#ifdef __cplusplus
extern "C" {
#endif

static inline osd_result osd_posix_result(void) {
  if (errno == ECONNREFUSED) return OSD_NOBODY;
  return errno == EAGAIN || errno == EINTR ? OSD_NO_ANSWER : OSD_SOCKET;
}

static inline osd_result osd_posix_send(osd_client* client, const uint8_t* datagram,
                                        size_t length) {
  return send(client->fd, datagram, length, 0) < 0 ? osd_posix_result() : OSD_DONE;
}

static inline int osd_posix_receive(osd_client* client, uint8_t* buffer, size_t size,
                                    uint32_t timeout_ms) {
  struct pollfd wanted;
  ssize_t length;
  wanted.fd = client->fd;
  wanted.events = POLLIN;
  if (poll(&wanted, 1, (int)timeout_ms) == 0) return -OSD_NO_ANSWER;
  length = recv(client->fd, buffer, size, MSG_DONTWAIT);
  return length < 0 ? -(int)osd_posix_result() : (int)length;
}

static inline uint32_t osd_posix_now(osd_client* client) {
  struct timespec now;
  (void)client;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (uint32_t)now.tv_sec * 1000u + (uint32_t)(now.tv_nsec / 1000000);
}

/* As osd_start, with a socket that is bound to the port on 127.0.0.1 and connected to the daemon:
 * the kernel then drops what others send and tells when nobody listens. What waits in it was meant
 * for whoever had the port before, and is dropped. OSD_SOCKET with errno when the port cannot be
 * had (EADDRINUSE: another process speaks as this peer). osd_close it. */
static inline osd_result osd_open(osd_client* client, uint16_t port) {
  const uint16_t ports[2] = {port, OSD_DAEMON_PORT};
  struct sockaddr_in address[2];
  const osd_result result = osd_start(client, port);
  int i;
  if (result != OSD_DONE) return result;
  memset(address, 0, sizeof address);
  for (i = 0; i < 2; i++) {
    address[i].sin_family = AF_INET;
    address[i].sin_port = htons(ports[i]);
    address[i].sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  }
  client->send = osd_posix_send;
  client->receive = osd_posix_receive;
  client->now = osd_posix_now;
  client->fd = socket(AF_INET, SOCK_DGRAM, 0);
  if (client->fd < 0 || bind(client->fd, (struct sockaddr*)&address[0], sizeof address[0]) != 0 ||
      connect(client->fd, (struct sockaddr*)&address[1], sizeof address[1]) != 0)
    return OSD_SOCKET;
  while (recv(client->fd, client->buffer, 1, MSG_DONTWAIT) >= 0) {
  }
  return OSD_DONE;
}

static inline void osd_close(osd_client* client) {
  if (client->fd >= 0) close(client->fd);
  client->fd = -1;
}

#ifdef __cplusplus
}
#endif
#endif
#endif
