byId("remote").append(data.remote);
