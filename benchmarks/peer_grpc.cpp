#include "peer_grpc.h"

#include <google/protobuf/struct.pb.h>
#include <grpcpp/grpcpp.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "policy_stream.grpc.pb.h"
#include "to_protobuf.h"

namespace zam_bench {
namespace {

using google::protobuf::Value;

constexpr std::size_t kPieceBytes = 65'536;
constexpr auto kLongestStart = std::chrono::seconds(30);

class PolicyStreamService final : public stream::PolicyStream::Service {
public:
    explicit PolicyStreamService(const zuv::TValue& tree) {
        Value value;
        FillProtobuf(value, tree);
        std::string bytes;
        if (!value.SerializeToString(&bytes)) {
            throw std::runtime_error("protobuf did not encode the tree");
        }
        for (std::size_t begin = 0; begin < bytes.size(); begin += kPieceBytes) {
            pieces_.emplace_back().set_content(bytes.substr(begin, kPieceBytes));
        }
    }

    grpc::Status Pull(grpc::ServerContext* /*context*/, const stream::PullRequest* /*request*/,
                      grpc::ServerWriter<stream::Piece>* writer) override {
        for (const stream::Piece& piece : pieces_) {
            if (!writer->Write(piece)) {
                break;
            }
        }
        return grpc::Status::OK;
    }

private:
    std::vector<stream::Piece> pieces_;
};

void Serve(const std::string& address, const zuv::TValue& tree) {
    PolicyStreamService service(tree);
    grpc::ServerBuilder builder;
    builder.AddListeningPort(address, grpc::InsecureServerCredentials());
    builder.RegisterService(&service);
    const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (server == nullptr) {
        throw std::runtime_error("gRPC does not serve on " + address);
    }
    server->Wait();
}

class PolicyStreamClient {
public:
    explicit PolicyStreamClient(const std::string& address)
        : channel_(grpc::CreateChannel(address, grpc::InsecureChannelCredentials())),
          stub_(stream::PolicyStream::NewStub(channel_)) {
        if (!channel_->WaitForConnected(std::chrono::system_clock::now() + kLongestStart)) {
            throw std::runtime_error("gRPC does not reach " + address);
        }
    }

    void Pull() {
        grpc::ClientContext context;
        const auto reader = stub_->Pull(&context, stream::PullRequest());
        std::string bytes;
        for (stream::Piece piece; reader->Read(&piece);) {
            bytes += piece.content();
        }
        tree_ = std::make_unique<Value>();
        if (!reader->Finish().ok() || !tree_->ParseFromString(bytes)) {
            throw std::runtime_error("gRPC did not bring the tree");
        }
    }

    void Clear() { tree_.reset(); }

private:
    std::shared_ptr<grpc::Channel> channel_;
    std::unique_ptr<stream::PolicyStream::Stub> stub_;
    std::unique_ptr<Value> tree_;
};

}  // namespace

GrpcServer::GrpcServer(const zuv::TValue& tree)
    : address_("unix-abstract:zam_bench_grpc_" + std::to_string(::getpid())),
      process_([&] { Serve(address_, tree); }) {}

Work GrpcPullWork(const GrpcServer& server) {
    const auto client = std::make_shared<PolicyStreamClient>(server.Address());
    client->Pull();
    client->Clear();
    return {[client] { client->Pull(); }, [client] { client->Clear(); }};
}

}  // namespace zam_bench
