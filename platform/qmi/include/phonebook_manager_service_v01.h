/*
 * phonebook_manager_service_v01.h - the messages of the modem's phonebook
 * manager service (PBM) that the phonebook module uses, as plain C structs
 * with the platform's natural alignment.
 *
 * Conventions: an optional field follows a uint8_t <field>_valid flag; a
 * variable-length array is its bound, preceded by a uint32_t <field>_len
 * count (elements; bytes for char arrays). Decoding sets counts and adds no
 * terminator. number is ASCII; name is UCS-2 with each character low byte
 * first, its count in bytes. Every enum carries 32-bit sentinels so that it
 * is 4 bytes wide on every compiler.
 */
#ifndef PHONEBOOK_MANAGER_SERVICE_V01_H
#define PHONEBOOK_MANAGER_SERVICE_V01_H

#include <stdint.h>

#include "qmi_client.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Version of the message definitions this library was built for. */
#define PBM_V01_IDL_MAJOR_VERS 0x01
#define PBM_V01_IDL_MINOR_VERS 0x10
#define PBM_V01_IDL_TOOL_VERS  0x06

/* Array bounds */
#define QMI_PBM_NUMBER_MAX_LENGTH_V01             40
#define QMI_PBM_NAME_MAX_LENGTH_V01               241
#define QMI_PBM_EMAIL_MAX_LENGTH_V01              241
#define QMI_PBM_AD_NUM_MAX_V01                    4
#define QMI_PBM_GRP_ID_MAX_V01                    10
#define QMI_PBM_EMAIL_INFO_MAX_V01                2
#define QMI_PBM_MAX_NUM_BASIC_RECORD_INSTANCE_V01 10
#define QMI_PBM_MAX_NUM_SNAME_INFO_V01            10
#define QMI_PBM_MAX_NUM_AD_NUM_INSTANCE_V01       10
#define QMI_PBM_MAX_NUM_GRP_ID_INSTANCE_V01       10
#define QMI_PBM_MAX_NUM_EMAIL_INSTANCE_V01        10
#define QMI_PBM_MAX_NUM_HIDDEN_INFO_INSTANCE_V01  10
#define QMI_PBM_MAX_NUM_AD_NUM_COUNT_V01          4

/* Message ids: request, response and indication share the number. */
#define QMI_PBM_GET_PB_CAPABILITIES_REQ_V01    0x0002
#define QMI_PBM_GET_PB_CAPABILITIES_RESP_V01   0x0002
#define QMI_PBM_READ_RECORDS_REQ_V01           0x0004
#define QMI_PBM_READ_RECORDS_RESP_V01          0x0004
#define QMI_PBM_RECORD_READ_IND_V01            0x0004
#define QMI_PBM_WRITE_RECORD_REQ_V01           0x0005
#define QMI_PBM_WRITE_RECORD_RESP_V01          0x0005
#define QMI_PBM_DELETE_RECORD_REQ_V01          0x0006
#define QMI_PBM_DELETE_RECORD_RESP_V01         0x0006
#define QMI_PBM_DELETE_ALL_PB_RECORDS_REQ_V01  0x0007
#define QMI_PBM_DELETE_ALL_PB_RECORDS_RESP_V01 0x0007

/* Phonebook types (one value per request) */
#define PBM_PB_TYPE_ADN_V01 0x0001
#define PBM_PB_TYPE_FDN_V01 0x0002

/* Common response */
typedef enum {
    QMI_RESULT_TYPE_MIN_V01 = -2147483647,
    QMI_RESULT_SUCCESS_V01 = 0,
    QMI_RESULT_FAILURE_V01 = 1,
    QMI_RESULT_TYPE_MAX_V01 = 2147483647
} qmi_result_type_v01;

typedef enum {
    QMI_ERROR_TYPE_MIN_V01 = -2147483647,
    QMI_ERR_NONE_V01 = 0x00,
    QMI_ERR_MALFORMED_MSG_V01 = 0x01,
    QMI_ERR_NO_MEMORY_V01 = 0x02,
    QMI_ERR_INTERNAL_V01 = 0x03,
    QMI_ERR_MISSING_ARG_V01 = 0x11,
    QMI_ERR_ARG_TOO_LONG_V01 = 0x13,
    QMI_ERR_SIM_NOT_INITIALIZED_V01 = 0x25,
    QMI_ERR_INVALID_ARG_V01 = 0x30,
    QMI_ERR_INVALID_INDEX_V01 = 0x31,
    QMI_ERR_NO_ENTRY_V01 = 0x32,
    QMI_ERR_DEVICE_STORAGE_FULL_V01 = 0x33,
    QMI_ERR_DEVICE_NOT_READY_V01 = 0x34,
    QMI_ERR_ENCODING_V01 = 0x3A,
    QMI_ERR_INVALID_OPERATION_V01 = 0x46,
    QMI_ERR_INVALID_QMI_CMD_V01 = 0x47,
    QMI_ERR_ACCESS_DENIED_V01 = 0x52,
    QMI_ERR_NOT_SUPPORTED_V01 = 0x5E,
    QMI_ERR_INVALID_SESSION_TYPE_V01 = 0x64,
    QMI_ERR_INVALID_PB_TYPE_V01 = 0x65,
    QMI_ERR_NO_SIM_V01 = 0x66,
    QMI_ERR_PB_NOT_READY_V01 = 0x67,
    QMI_ERR_PB_TEXT_TOO_LONG_V01 = 0x6E,
    QMI_ERR_PB_NUMBER_TOO_LONG_V01 = 0x6F,
    QMI_ERR_DEVICE_MEMORY_ERROR_V01 = 0x72,
    QMI_ERROR_TYPE_MAX_V01 = 2147483647
} qmi_error_type_v01;

typedef struct {
    qmi_result_type_v01 result;
    qmi_error_type_v01 error;
} qmi_response_type_v01;

typedef enum {
    PBM_SESSION_TYPE_MIN_V01 = -2147483647,
    PBM_SESSION_TYPE_GW_PRIMARY_V01 = 0,
    PBM_SESSION_TYPE_1X_PRIMARY_V01 = 1,
    PBM_SESSION_TYPE_GW_SECONDARY_V01 = 2,
    PBM_SESSION_TYPE_1X_SECONDARY_V01 = 3,
    PBM_SESSION_TYPE_NON_PROVISIONING_SLOT1_V01 = 4,
    PBM_SESSION_TYPE_NON_PROVISIONING_SLOT2_V01 = 5,
    PBM_SESSION_TYPE_GLOBAL_PB_SLOT1_V01 = 6,
    PBM_SESSION_TYPE_GLOBAL_PB_SLOT2_V01 = 7,
    PBM_SESSION_TYPE_GW_TERTIARY_V01 = 8,
    PBM_SESSION_TYPE_1X_TERTIARY_V01 = 9,
    PBM_SESSION_TYPE_GLOBAL_PB_SLOT3_V01 = 10,
    PBM_SESSION_TYPE_MAX_V01 = 2147483647
} pbm_session_type_enum_v01;

typedef enum {
    PBM_NUM_TYPE_MIN_V01 = -2147483647,
    PBM_NUM_TYPE_UNKNOWN_V01 = 0,
    PBM_NUM_TYPE_INTERNATIONAL_V01 = 1,
    PBM_NUM_TYPE_NATIONAL_V01 = 2,
    PBM_NUM_TYPE_NETWORK_SPECIFIC_V01 = 3,
    PBM_NUM_TYPE_DEDICATED_ACCESS_V01 = 4,
    PBM_NUM_TYPE_MAX_V01 = 2147483647
} pbm_num_type_enum_v01;

typedef enum {
    PBM_NUM_PLAN_MIN_V01 = -2147483647,
    PBM_NUM_PLAN_UNKNOWN_V01 = 0,
    PBM_NUM_PLAN_ISDN_V01 = 1,
    PBM_NUM_PLAN_DATA_V01 = 2,
    PBM_NUM_PLAN_TELEX_V01 = 3,
    PBM_NUM_PLAN_NATIONAL_V01 = 4,
    PBM_NUM_PLAN_PRIVATE_V01 = 5,
    PBM_NUM_PLAN_MAX_V01 = 2147483647
} pbm_num_plan_enum_v01;

typedef enum {
    PBM_PROTECTION_METHOD_MIN_V01 = -2147483647,
    PBM_PROTECTION_ALLOWED_V01 = 0,
    PBM_PROTECTION_NEVER_V01 = 1,
    PBM_PROTECTION_ALL_PINS_V01 = 2,
    PBM_PROTECTION_ANY_PIN_V01 = 3,
    PBM_PROTECTION_ONE_PIN_V01 = 4,
    PBM_PROTECTION_METHOD_MAX_V01 = 2147483647
} pbm_protection_method_v01;

typedef uint64_t pbm_pin_mask_type_v01;

typedef struct {
    pbm_session_type_enum_v01 session_type;
    uint16_t pb_type;
} pbm_phonebook_info_type_v01;

/* Get phonebook capabilities, 0x0002 */
typedef struct {
    pbm_phonebook_info_type_v01 phonebook_info;
} pbm_get_pb_capabilities_req_msg_v01;

typedef struct {
    pbm_session_type_enum_v01 session_type;
    uint16_t pb_type;
    uint16_t used_records;
    uint16_t max_records;
    uint8_t max_num_len;
    uint8_t max_name_len;
} pbm_capability_basic_info_type_v01;

typedef struct {
    uint8_t max_grp;
    uint8_t max_grp_tag_len;
} pbm_group_capability_type_v01;

typedef struct {
    uint8_t max_ad_num;
    uint8_t max_ad_num_len;
    uint8_t max_ad_num_tag_len;
} pbm_ad_num_capability_type_v01;

typedef struct {
    uint8_t max_email;
    uint8_t max_email_len;
} pbm_email_capability_type_v01;

typedef struct {
    uint8_t max_records;
    uint8_t used_records;
    uint8_t max_gas_string_len;
} pbm_gas_capability_type_v01;

typedef struct {
    uint8_t max_records;
    uint8_t used_records;
    uint8_t max_aas_string_len;
} pbm_aas_capability_type_v01;

typedef struct {
    pbm_protection_method_v01 protection_method;
    pbm_pin_mask_type_v01 pin_mask;
} pbm_access_info_type_v01;

typedef struct {
    qmi_response_type_v01 resp;
    uint8_t capability_basic_info_valid;
    pbm_capability_basic_info_type_v01 capability_basic_info;
    uint8_t group_capability_valid;
    pbm_group_capability_type_v01 group_capability;
    uint8_t ad_num_capability_valid;
    pbm_ad_num_capability_type_v01 ad_num_capability;
    uint8_t email_capability_valid;
    pbm_email_capability_type_v01 email_capability;
    uint8_t max_second_name_len_valid;
    uint8_t max_second_name_len;
    uint8_t is_hidden_entry_supported_valid;
    uint8_t is_hidden_entry_supported;
    uint8_t gas_capability_valid;
    pbm_gas_capability_type_v01 gas_capability;
    uint8_t aas_capability_valid;
    pbm_aas_capability_type_v01 aas_capability;
    uint8_t write_access_info_valid;
    pbm_access_info_type_v01 write_access_info;
    uint8_t num_pb_sets_valid;
    uint16_t num_pb_sets;
} pbm_get_pb_capabilities_resp_msg_v01;

/* Read records, 0x0004 */
typedef struct {
    pbm_session_type_enum_v01 session_type;
    uint16_t pb_type;
    uint16_t record_start_id;
    uint16_t record_end_id;
} pbm_record_info_type_v01;

typedef struct {
    pbm_record_info_type_v01 record_info;
} pbm_read_records_req_msg_v01;

typedef struct {
    qmi_response_type_v01 resp;
    uint8_t num_of_recs_valid;
    uint16_t num_of_recs; /* records the following record-read indications deliver */
} pbm_read_records_resp_msg_v01;

/* Record-read indication, 0x0004 */
typedef struct {
    uint16_t record_id;
    pbm_num_type_enum_v01 num_type;
    pbm_num_plan_enum_v01 num_plan;
    uint32_t number_len;
    char number[QMI_PBM_NUMBER_MAX_LENGTH_V01];
    uint32_t name_len;
    char name[QMI_PBM_NAME_MAX_LENGTH_V01];
} pbm_record_instance_type_v01;

typedef struct {
    uint16_t seq_num;
    pbm_session_type_enum_v01 session_type;
    uint16_t pb_type;
    uint32_t record_instances_len;
    pbm_record_instance_type_v01 record_instances[QMI_PBM_MAX_NUM_BASIC_RECORD_INSTANCE_V01];
} pbm_basic_record_data_type_v01;

typedef struct {
    uint16_t record_id;
    uint32_t sname_len;
    char sname[QMI_PBM_NAME_MAX_LENGTH_V01];
} pbm_sname_info_type_v01;

typedef struct {
    pbm_num_type_enum_v01 num_type;
    pbm_num_plan_enum_v01 num_plan;
    uint32_t ad_number_len;
    char ad_number[QMI_PBM_NUMBER_MAX_LENGTH_V01];
    uint8_t ad_num_tag_id;
} pbm_ad_num_info_type_v01;

typedef struct {
    uint16_t record_id;
    uint32_t ad_nums_len;
    pbm_ad_num_info_type_v01 ad_nums[QMI_PBM_MAX_NUM_AD_NUM_COUNT_V01];
} pbm_ad_num_record_info_type_v01;

typedef struct {
    uint16_t record_id;
    uint32_t grp_id_len;
    uint8_t grp_id[QMI_PBM_GRP_ID_MAX_V01];
} pbm_grp_id_record_info_type_v01;

typedef struct {
    uint32_t email_address_len;
    char email_address[QMI_PBM_EMAIL_MAX_LENGTH_V01];
} pbm_email_info_type_v01;

typedef struct {
    uint16_t record_id;
    uint32_t email_len;
    pbm_email_info_type_v01 email[QMI_PBM_EMAIL_INFO_MAX_V01];
} pbm_email_record_info_type_v01;

typedef struct {
    uint16_t record_id;
    uint8_t is_hidden;
} pbm_hidden_record_info_type_v01;

typedef struct {
    pbm_basic_record_data_type_v01 basic_record_data;
    uint8_t sname_info_array_valid;
    uint32_t sname_info_array_len;
    pbm_sname_info_type_v01 sname_info_array[QMI_PBM_MAX_NUM_SNAME_INFO_V01];
    uint8_t ad_num_info_array_valid;
    uint32_t ad_num_info_array_len;
    pbm_ad_num_record_info_type_v01 ad_num_info_array[QMI_PBM_MAX_NUM_AD_NUM_INSTANCE_V01];
    uint8_t grp_id_info_array_valid;
    uint32_t grp_id_info_array_len;
    pbm_grp_id_record_info_type_v01 grp_id_info_array[QMI_PBM_MAX_NUM_GRP_ID_INSTANCE_V01];
    uint8_t email_info_array_valid;
    uint32_t email_info_array_len;
    pbm_email_record_info_type_v01 email_info_array[QMI_PBM_MAX_NUM_EMAIL_INSTANCE_V01];
    uint8_t hidden_record_info_array_valid;
    uint32_t hidden_record_info_array_len;
    pbm_hidden_record_info_type_v01 hidden_record_info_array[QMI_PBM_MAX_NUM_HIDDEN_INFO_INSTANCE_V01];
} pbm_record_read_ind_msg_v01;

/* Write record, 0x0005. record_id 0 lets the service pick a free record. */
typedef struct {
    pbm_session_type_enum_v01 session_type;
    uint16_t phonebook_type;
    uint16_t record_id;
    pbm_num_type_enum_v01 num_type;
    pbm_num_plan_enum_v01 num_plan;
    uint32_t number_len;
    char number[QMI_PBM_NUMBER_MAX_LENGTH_V01];
    uint32_t name_len;
    char name[QMI_PBM_NAME_MAX_LENGTH_V01];
} pbm_record_information_type_v01;

typedef struct {
    pbm_record_information_type_v01 record_information;
    uint8_t sname_valid;
    uint32_t sname_len;
    char sname[QMI_PBM_NAME_MAX_LENGTH_V01];
    uint8_t ad_num_info_valid;
    uint32_t ad_num_info_len;
    pbm_ad_num_info_type_v01 ad_num_info[QMI_PBM_AD_NUM_MAX_V01];
    uint8_t grp_id_valid;
    uint32_t grp_id_len;
    uint8_t grp_id[QMI_PBM_GRP_ID_MAX_V01];
    uint8_t email_info_valid;
    uint32_t email_info_len;
    pbm_email_info_type_v01 email_info[QMI_PBM_EMAIL_INFO_MAX_V01];
    uint8_t is_hidden_valid;
    uint8_t is_hidden;
} pbm_write_record_req_msg_v01;

typedef struct {
    qmi_response_type_v01 resp;
    uint8_t record_id_valid;
    uint16_t record_id; /* the record actually written */
} pbm_write_record_resp_msg_v01;

/* Delete record 0x0006, delete all 0x0007 */
typedef struct {
    pbm_session_type_enum_v01 session_type;
    uint16_t pb_type;
    uint16_t record_id;
} pbm_record_id_type_v01;

typedef struct {
    pbm_record_id_type_v01 record_info;
} pbm_delete_record_req_msg_v01;

typedef struct {
    qmi_response_type_v01 resp;
    uint8_t record_id_valid;
    uint16_t record_id;
} pbm_delete_record_resp_msg_v01;

typedef struct {
    pbm_phonebook_info_type_v01 phonebook_info;
} pbm_delete_all_pb_records_req_msg_v01;

typedef struct {
    qmi_response_type_v01 resp;
} pbm_delete_all_pb_records_resp_msg_v01;

/* The service object of the definitions above; NULL unless the three numbers
 * are exactly the ones this library was built for (1, 16, 6). */
qmi_idl_service_object_type pbm_get_service_object_internal_v01(int32_t idl_maj_version,
                                                                int32_t idl_min_version,
                                                                int32_t library_version);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(pbm_session_type_enum_v01) == 4 && sizeof(pbm_num_type_enum_v01) == 4 &&
                  sizeof(pbm_num_plan_enum_v01) == 4 && sizeof(qmi_result_type_v01) == 4 &&
                  sizeof(qmi_error_type_v01) == 4 && sizeof(pbm_protection_method_v01) == 4,
              "enums are 4 bytes");
static_assert(sizeof(qmi_response_type_v01) == 8, "layout");
static_assert(sizeof(pbm_phonebook_info_type_v01) == 8, "layout");
static_assert(sizeof(pbm_get_pb_capabilities_req_msg_v01) == 8, "layout");
static_assert(sizeof(pbm_capability_basic_info_type_v01) == 12, "layout");
static_assert(sizeof(pbm_access_info_type_v01) == 16 && alignof(pbm_access_info_type_v01) == 8, "layout");
static_assert(offsetof(pbm_get_pb_capabilities_resp_msg_v01, capability_basic_info) == 12, "layout");
static_assert(offsetof(pbm_get_pb_capabilities_resp_msg_v01, aas_capability) == 43, "layout");
static_assert(offsetof(pbm_get_pb_capabilities_resp_msg_v01, write_access_info) == 48, "layout");
static_assert(offsetof(pbm_get_pb_capabilities_resp_msg_v01, num_pb_sets) == 66, "layout");
static_assert(sizeof(pbm_get_pb_capabilities_resp_msg_v01) == 72, "layout");
static_assert(sizeof(pbm_read_records_req_msg_v01) == 12 && sizeof(pbm_read_records_resp_msg_v01) == 12,
              "layout");
static_assert(offsetof(pbm_read_records_resp_msg_v01, num_of_recs) == 10, "layout");
static_assert(sizeof(pbm_record_instance_type_v01) == 304, "layout");
static_assert(offsetof(pbm_record_instance_type_v01, number) == 16, "layout");
static_assert(offsetof(pbm_record_instance_type_v01, name_len) == 56, "layout");
static_assert(offsetof(pbm_record_instance_type_v01, name) == 60, "layout");
static_assert(sizeof(pbm_basic_record_data_type_v01) == 3056, "layout");
static_assert(offsetof(pbm_basic_record_data_type_v01, record_instances_len) == 12, "layout");
static_assert(offsetof(pbm_basic_record_data_type_v01, record_instances) == 16, "layout");
static_assert(sizeof(pbm_sname_info_type_v01) == 252 && sizeof(pbm_ad_num_info_type_v01) == 56 &&
                  sizeof(pbm_ad_num_record_info_type_v01) == 232 &&
                  sizeof(pbm_grp_id_record_info_type_v01) == 20 && sizeof(pbm_email_info_type_v01) == 248 &&
                  sizeof(pbm_email_record_info_type_v01) == 504 &&
                  sizeof(pbm_hidden_record_info_type_v01) == 4,
              "layout");
static_assert(offsetof(pbm_record_read_ind_msg_v01, sname_info_array_valid) == 3056, "layout");
static_assert(offsetof(pbm_record_read_ind_msg_v01, ad_num_info_array) == 5592, "layout");
static_assert(offsetof(pbm_record_read_ind_msg_v01, email_info_array) == 8128, "layout");
static_assert(offsetof(pbm_record_read_ind_msg_v01, hidden_record_info_array) == 13176, "layout");
static_assert(sizeof(pbm_record_read_ind_msg_v01) == 13216, "layout");
static_assert(sizeof(pbm_record_information_type_v01) == 308, "layout");
static_assert(offsetof(pbm_record_information_type_v01, number) == 20, "layout");
static_assert(offsetof(pbm_record_information_type_v01, name) == 64, "layout");
static_assert(offsetof(pbm_write_record_req_msg_v01, sname_valid) == 308, "layout");
static_assert(offsetof(pbm_write_record_req_msg_v01, ad_num_info) == 564, "layout");
static_assert(offsetof(pbm_write_record_req_msg_v01, email_info) == 812, "layout");
static_assert(offsetof(pbm_write_record_req_msg_v01, is_hidden) == 1309, "layout");
static_assert(sizeof(pbm_write_record_req_msg_v01) == 1312, "layout");
static_assert(sizeof(pbm_write_record_resp_msg_v01) == 12, "layout");
static_assert(offsetof(pbm_write_record_resp_msg_v01, record_id) == 10, "layout");
static_assert(sizeof(pbm_delete_record_req_msg_v01) == 8 && sizeof(pbm_delete_record_resp_msg_v01) == 12,
              "layout");
static_assert(offsetof(pbm_record_id_type_v01, record_id) == 6, "layout");
static_assert(sizeof(pbm_delete_all_pb_records_req_msg_v01) == 8, "layout");
static_assert(sizeof(pbm_delete_all_pb_records_resp_msg_v01) == 8, "layout");
#endif

#endif /* PHONEBOOK_MANAGER_SERVICE_V01_H */
