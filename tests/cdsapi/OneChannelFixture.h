#pragma once
// The data-store client fixture with the objects most tests change: one
// device holding one channel, created afresh for every test.

#include "CdsapiFixture.h"

#include <cstdint>
#include <string>
#include <utility>

namespace cdsapi::test {

class OneChannelFixture : public CdsapiFixture {
protected:
    OneChannelFixture(std::string deviceName, std::string channelName, zu::CValue initialValue)
        : m_deviceName(std::move(deviceName))
        , m_channelName(std::move(channelName))
        , m_initialValue(std::move(initialValue))
    {
    }

    void SetUp() override
    {
        CdsapiFixture::SetUp();
        device = store.createDevice(m_deviceName);
        channel = store.addChannel(device, m_channelName, m_initialValue);
    }

    std::uint64_t device = 0;
    std::uint64_t channel = 0;

private:
    std::string m_deviceName;
    std::string m_channelName;
    zu::CValue m_initialValue;
};

} // namespace cdsapi::test
