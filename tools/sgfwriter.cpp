#include "tools/sgfwriter.h"

#include <cstdio>
#include <cstring>

namespace tarvik {

void SgfWriter::PutInt32(std::string& out, int32_t v)
{
    uint32_t u = uint32_t(v);
    for (int i = 0; i < 4; i++) out += char((u >> (8 * i)) & 0xFF);
}

void SgfWriter::PutFloat(std::string& out, float v)
{
    uint32_t u;
    std::memcpy(&u, &v, 4);
    PutInt32(out, int32_t(u));
}

void SgfWriter::PutText(std::string& out, const std::string& text)
{
    size_t n = text.size() > 32767 ? 32767 : text.size();
    out += char(n & 0xFF);
    out += char((n >> 8) & 0xFF);
    out.append(text, 0, n);
}

SgfSignal& SgfWriter::Add(const std::string& name, std::vector<float> samples)
{
    signals.push_back(SgfSignal{name, std::move(samples)});
    return signals.back();
}

std::string SgfWriter::Build() const
{
    std::string out;
    out.append(magic, 0, 4);
    PutInt32(out, int32_t(declaredSignals < 0 ? int64_t(signals.size()) : declaredSignals));
    PutFloat(out, timestep);
    out.append(propTag, 0, 4);
    PutInt32(out, int32_t(declaredProperties < 0 ? int64_t(properties.size()) : declaredProperties));
    for (const auto& p : properties) {
        PutText(out, p.first);
        PutText(out, p.second);
    }
    if (metaTag.empty()) {
        PutInt32(out, 0);
        PutInt32(out, 0);
    } else {
        out.append(metaTag, 0, 4);
        PutInt32(out, int32_t(declaredMeta < 0 ? int64_t(meta.size()) : declaredMeta));
        for (const auto& p : meta) {
            PutText(out, p.first);
            PutText(out, p.second);
        }
    }
    for (const SgfSignal& s : signals) {
        out.append(s.tag, 0, 4);
        PutInt32(out, s.unused);
        PutInt32(out, int32_t(s.declaredCount < 0 ? int64_t(s.samples.size()) : s.declaredCount));
        char name[32] = {0};
        std::memcpy(name, s.name.data(), s.name.size() < 32 ? s.name.size() : 32);
        out.append(name, 32);
        for (float v : s.samples) PutFloat(out, v);
    }
    return out;
}

bool SgfWriter::Save(const std::string& path) const
{
    std::string bytes = Build();
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    return std::fclose(f) == 0 && ok;
}

} // namespace tarvik
