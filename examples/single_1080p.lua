-- Placeholder, replaced by the channel example.
_resource_config_ = {
	version = 1,
	log_level = 1,
	enable_hp_fps = 0,
	vin_short_line_detect = 0,
}
return _resource_config_
