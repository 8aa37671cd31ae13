// The numbers of the requests: one numbering for all inspection plug-ins; ids 0 to 5 belong to others.
#ifndef COMMON_REQUEST_IDS_H
#define COMMON_REQUEST_IDS_H

enum request_id : unsigned int {
    APPIDENT_GET_CUR_DEVICE_APP = 6,
    APPIDENT_GET_CUR_DEVICE_APP_FOR_ROM,
    APPIDENT_GET_CUR_DEVICES_APP,
    APPIDENT_GET_CUR_DEVICES_APP_FOR_ROM,
    APPIDENT_GET_DEVICE_APP_RECORD, // reserved, never answered
    APPIDENT_SET_DEVICE_APP_LIST_USE_TIME,
    APPIDENT_GET_DEVICE_APP_LIST_USE_TIME,
    APPIDENT_SET_PAYMENT_CONFIG,
    APPIDENT_GET_PAYMENT_CONFIG,
};

#endif
