/*
 * zpt_ui_conv.h - text and number encodings: UTF-8 and UCS-2, the GSM 7-bit
 * default alphabet, BCD dialling numbers and the SIM's 0x81/0x82 name forms.
 *
 * No state, no locks; safe from any thread on distinct buffers. Output
 * buffers are the caller's; the room each needs is given with the function.
 * UCS-2 byte strings are big-endian and their lengths count bytes.
 */
#ifndef ZPT_UI_CONV_H
#define ZPT_UI_CONV_H

#ifdef __cplusplus
extern "C" {
#endif

/* UCS-2 and UTF-8 */
int char2short(const char *src, int srclen, unsigned short *des);
int short2char(const unsigned short *src, int srclen, char *des);
int uni2utf(unsigned short wchar, char *utf8);
/* Writes at most 2 * src_len bytes. */
int conv_utf8_to_ucs2(char *des_data, int *des_len, char *src_data, int src_len);
/* Writes at most 3 * ((src_len + 1) / 2) bytes. */
int conv_ucs2_to_utf8(char *des_data, int *des_len, char *src_data, int src_len);
int conv_swap_the_double_bytes_order(char *data, int len);

/* GSM 7-bit default alphabet */
int conv_ascii_to_gsm7(char *des_data, int *des_len, char *src_data, int src_len);
int conv_gsm7_to_ascii(char *des_data, int *des_len, char *src_data, int src_len);
int conv_ascii_to_gsm_alphabet(char *des_data, int *des_len, int shift, int outlenmax, char *src_data,
                               int src_len);
int conv_gsm_to_ascii_alphabet(char *des_data, int *des_len, int shift, int outlenmax, char *src_data,
                               int src_len);

/* BCD dialling numbers */
extern char bcd_to_char_mapping[16]; /* "0123456789*#TPW" */
int conv_bcd_to_ascii(const unsigned char *bcd_number, unsigned char bcd_len, unsigned char ton_npi,
                      unsigned char *ascii_number);
int conv_ascii_to_bcd(unsigned char *ascii_number, unsigned char type, unsigned char *bcd_number);
void sim_to_display(char *addr, int len);
void display_to_sim(char *addr, int len);

/* SIM UCS2 0x81 and 0x82 name forms; des needs room for 21 values. */
int ucs2_81_to_80(unsigned short *des, int *des_len, unsigned char *str);
int ucs2_82_to_80(unsigned short *des, int *des_len, unsigned char *str);

#ifdef __cplusplus
}
#endif

#endif /* ZPT_UI_CONV_H */
