include $(sort $(wildcard $(BR2_EXTERNAL_QUARLO_INPUT_PATH)/package/*/*.mk))
