include $(sort $(wildcard $(BR2_EXTERNAL_TOVUUTIL_PATH)/package/*/*.mk))
